#include "tests/support/NginxServer.h"

#include "tests/support/TestDevice.h"

#include <QDir>
#include <QFile>
#include <QTcpServer>
#include <QTcpSocket>

namespace {

quint16 freePort()
{
    QTcpServer server;
    server.listen(QHostAddress::LocalHost);
    return server.serverPort();
}

bool answers(quint16 port)
{
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, port);
    return socket.waitForConnected(200);
}

} // namespace

QString NginxServer::pki(const QString &name)
{
    static const QTemporaryDir authorities;
    static const bool made = [] {
        QProcess process;
        process.start(QString(SOURCES) + "/device/server/make-pki", {authorities.path()});
        return process.waitForFinished() && process.exitCode() == 0;
    }();
    if (!made) {
        qFatal("no PKI");
    }
    return authorities.filePath(name);
}

NginxServer::NginxServer(const QString &certificate) : port(freePort()), secure(!certificate.isEmpty())
{
    QStringList arguments = {directory.path() + "/server", QString::number(port)};
    if (secure) {
        arguments << QFileInfo(pki("ca.pem")).path() << certificate;
    }
    process.setProcessChannelMode(QProcess::ForwardedChannels);
    process.start(QString(SOURCES) + "/device/server/start-server", arguments);
    running =
        TestDevice::waitUntil([this] { return answers(port) || process.state() == QProcess::NotRunning; }) &&
        process.state() == QProcess::Running;
}

NginxServer::~NginxServer()
{
    process.terminate();
    if (!process.waitForFinished(5000)) {
        process.kill();
        process.waitForFinished();
    }
}

QString NginxServer::url() const
{
    return QString("%1://127.0.0.1:%2/save").arg(secure ? "https" : "http", QString::number(port));
}

QStringList NginxServer::accessLog() const
{
    QFile log(directory.path() + "/server/log/access.log");
    return log.open(QIODevice::ReadOnly) ? QString::fromUtf8(log.readAll()).split('\n', Qt::SkipEmptyParts)
                                         : QStringList();
}

void NginxServer::installTool(const QString &deviceRoot, const QString &certificate, const QString &key,
                              const QString &authorities, const QString &status)
{
    const QString tool = deviceRoot + "/usr/bin/getVYXinfo";
    QDir().mkpath(deviceRoot + "/usr/bin");
    QDir().mkpath(deviceRoot + "/etc/VYXApplication");
    QFile::copy(QString(SOURCES) + "/device/server/getVYXinfo", tool);
    QFile configuration(deviceRoot + "/etc/VYXApplication/pki.conf");
    if (!configuration.open(QIODevice::WriteOnly)) {
        qFatal("no PKI configuration");
    }
    configuration.write(QString("CERT=%1\nCERT_PKEY=%2\nCA=%3\nSTATUS=%4\n")
                            .arg(pki(certificate), pki(key), pki(authorities), status)
                            .toUtf8());
}
