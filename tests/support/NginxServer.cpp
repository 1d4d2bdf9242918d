#include "tests/support/NginxServer.h"

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

QString NginxServer::url() const
{
    return QString("%1://127.0.0.1:%2/save").arg(secure ? "https" : "http", QString::number(port));
}

QStringList NginxServer::accessLog() const
{
    const QByteArray log = readFile(directory.path() + "/server/log/access.log");
    return QString::fromUtf8(log).split('\n', Qt::SkipEmptyParts);
}

void NginxServer::installTool(const QString &deviceRoot, const QString &certificate, const QString &key,
                              const QString &authorities, const QString &status)
{
    QDir().mkpath(deviceRoot + "/usr/bin");
    QFile::copy(QString(SOURCES) + "/device/server/getVYXinfo", deviceRoot + "/usr/bin/getVYXinfo");
    const QString configuration = QString("CERT=%1\nCERT_PKEY=%2\nCA=%3\nSTATUS=%4\n")
                                      .arg(pki(certificate), pki(key), pki(authorities), status);
    writeFile(deviceRoot + "/etc/VYXApplication/pki.conf", configuration.toUtf8());
}
