#include "tests/support/NginxServer.h"

#include <QTcpServer>
#include <QTcpSocket>

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

NginxServer::NginxServer(const QString &certificate, const QString &protocol, const QByteArray &directives,
                         bool lists)
    : secure(!certificate.isEmpty())
{
    QTcpServer free;
    free.listen(QHostAddress::LocalHost);
    port = free.serverPort();
    free.close();
    QStringList arguments = {directory.path() + "/server", QString::number(port)};
    if (secure) {
        arguments << QFileInfo(pki("ca.pem")).path() << certificate
                  << (protocol.isEmpty() ? "http2" : protocol);
    }
    qputenv("SERVER_DIRECTIVES", directives);
    qputenv("SERVER_LISTING", lists ? "yes" : "");
    process.setProcessChannelMode(QProcess::ForwardedChannels);
    process.start(QString(SOURCES) + "/device/server/start-server", arguments);
    running = TestDevice::waitUntil([this] {
                  QTcpSocket socket;
                  socket.connectToHost(QHostAddress::LocalHost, port);
                  return socket.waitForConnected(200) || process.state() == QProcess::NotRunning;
              }) &&
              process.state() == QProcess::Running;
}

QString NginxServer::url() const
{
    return QString("%1://127.0.0.1:%2/save").arg(secure ? "https" : "http", QString::number(port));
}

void NginxServer::installTool(const QString &deviceRoot, const QString &otherPki)
{
    TestDevice::shell("install -D " SOURCES "/device/server/getVYXinfo '" + deviceRoot +
                      "/usr/bin/getVYXinfo'");
    QString lines = "STATUS=SECURED\n";
    for (const QString line : {"CERT=device.pem", "CERT_PKEY=device.key", "CA=ca.pem"}) {
        const QString name = line.section('=', 1);
        lines +=
            line.section('=', 0, 0) + '=' + (otherPki.isEmpty() ? pki(name) : otherPki + '/' + name) + '\n';
    }
    writeFile(deviceRoot + "/etc/VYXApplication/pki.conf", lines.toUtf8());
}
