#include "repository/SecureConnection.h"

#include "commands/Command.h"
#include "platform/core/Waiter.h"
#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"

#include <QDateTime>
#include <QFile>
#include <QSslCertificate>
#include <QSslKey>

using namespace std::chrono_literals;

namespace {

constexpr auto toolLimit = 30s;
constexpr auto connectionLimit = 30s;
constexpr int httpsPort = 443;

QString ask(Waiter &waiter, const QStringList &question)
{
    if (waiter.mustEnd()) {
        return {};
    }
    const CommandResult result = runCommand(waiter, DevicePaths::getVYXinfo(), question, toolLimit);
    if (!result.succeeded()) {
        logWarning("The question '%1' to %2 failed: %3", question.join(' '), DevicePaths::getVYXinfo(),
                   result.errorText.trimmed());
    }
    const QByteArray &output = result.output;
    const qsizetype end = output.indexOf('\0');
    return QString::fromLocal8Bit(end < 0 ? output : output.left(end));
}

bool isValid(const QSslCertificate &certificate)
{
    const QDateTime now = QDateTime::currentDateTime();
    return !certificate.isNull() && certificate.effectiveDate() <= now && now < certificate.expiryDate();
}

QSslConfiguration trustingNobody()
{
    QSslConfiguration configuration;
    configuration.setCaCertificates({});
    configuration.setPeerVerifyMode(QSslSocket::VerifyPeer);
    return configuration;
}

} // namespace

void logSslErrors(const QList<QSslError> &errors)
{
    int number = 0;
    for (const QSslError &error : errors) {
        logError("Ssl error %1: %2", number++, error.errorString());
    }
}

SecureConnection::SecureConnection() : sslConfiguration(trustingNobody()) {}

QString SecureConnection::trustListStatus(Waiter &waiter)
{
    return ask(waiter, {"PKI", "STATUS", "DM"});
}

bool SecureConnection::needsSetUp() const
{
    return sslConfiguration.caCertificates().isEmpty() || !isValid(sslConfiguration.localCertificate()) ||
           sslConfiguration.privateKey().isNull();
}

void SecureConnection::queryFiles(Waiter &waiter)
{
    sslConfiguration = trustingNobody();
    sslSocket = std::make_unique<QSslSocket>();
    certificatePath = ask(waiter, {"PKI", "CERT"});
    authoritiesPath = ask(waiter, {"PKI", "CA"});
    keyPath = ask(waiter, {"PKI", "CERT_PKEY"});
}

void SecureConnection::useFiles(Waiter &waiter, const QUrl &url)
{
    if (waiter.mustEnd()) {
        return;
    }
    logDebug("Certificate: %1", certificatePath);
    logDebug("Certificate PKEY: %1", keyPath);
    logDebug("Certificate CA: %1", authoritiesPath);
    if (!loadCertificate() || !loadAuthorities() || !loadKey()) {
        return;
    }
    sslConfiguration.setPrivateKey(key);
    sslConfiguration.setLocalCertificate(certificate);
    sslConfiguration.setCaCertificates(authorities);
    connectSocket();
    tryConnection(waiter, url);
}

bool SecureConnection::loadCertificate()
{
    QFile file(certificatePath);
    if (!file.open(QIODevice::ReadOnly)) {
        logError("Could not open Ssl Certificate (%1)", certificatePath);
        return false;
    }
    certificate = QSslCertificate(&file, QSsl::Pem);
    if (!isValid(certificate)) {
        logError("Invalid local certificate (%1). Dates: (%2 - %3)", certificatePath,
                 certificate.effectiveDate().toString("dd.MM.yyyy"),
                 certificate.expiryDate().toString("dd.MM.yyyy"));
        logDebug("%1", QString::fromLatin1(certificate.toPem()));
        return false;
    }
    logDebug("Valid local certificate");
    return true;
}

bool SecureConnection::loadAuthorities()
{
    QFile file(authoritiesPath);
    if (!file.open(QIODevice::ReadOnly)) {
        logError("Could not open Ssl Certificate CA (%1)", authoritiesPath);
        return false;
    }
    authorities = QSslCertificate::fromDevice(&file, QSsl::Pem);
    if (authorities.isEmpty()) {
        logError("Invalid CA Certificate");
        return false;
    }
    logDebug("Valid CA Certificate");
    for (const QSslCertificate &authority : std::as_const(authorities)) {
        if (!isValid(authority)) {
            logError("Invalid CA Certificate");
            return false;
        }
    }
    return true;
}

bool SecureConnection::loadKey()
{
    QFile file(keyPath);
    if (!file.open(QIODevice::ReadOnly)) {
        logError("Could not open Ssl Certificate PKEY (%1)", keyPath);
        return false;
    }
    key = QSslKey(&file, QSsl::Rsa, QSsl::Pem, QSsl::PrivateKey);
    if (key.isNull()) {
        logError("Invalid local private key");
        return false;
    }
    logDebug("Valid local PKey");
    return true;
}

void SecureConnection::connectSocket()
{
    QSslSocket *const socket = sslSocket.get();
    connect(socket, &QSslSocket::connected, this, &SecureConnection::sslConnected);
    connect(socket, &QSslSocket::disconnected, this, &SecureConnection::sslDisconnected);
    connect(socket, &QSslSocket::encrypted, this, &SecureConnection::sslEncrypted);
    connect(socket, &QSslSocket::peerVerifyError, this, &SecureConnection::peerVerifyError);
    connect(socket, &QSslSocket::errorOccurred, this, &SecureConnection::socketError);
    connect(socket, &QSslSocket::sslErrors, this, [](const QList<QSslError> &errors) {
        logError("Request got %1 ssl error(s)", errors.size());
        logSslErrors(errors);
    });
    socket->setSslConfiguration(sslConfiguration);
}

void SecureConnection::tryConnection(Waiter &waiter, const QUrl &url)
{
    const QSslSocket &socket = *sslSocket;
    const QString host = url.host();
    const int port = url.port(httpsPort);
    logDebug("Try to connect to host with HTTPS/SSL (%1:%2)", host, port);
    sslSocket->setPeerVerifyName(host);
    sslSocket->connectToHost(host, static_cast<quint16>(port));
    const auto settled = [&socket] {
        return socket.state() == QSslSocket::ConnectedState || socket.state() == QSslSocket::UnconnectedState;
    };
    if (waiter.waitUntil(settled, connectionLimit) == WaitOutcome::Ended) {
        return;
    }
    if (socket.state() == QSslSocket::ConnectedState) {
        logInfo("Connected to '%1' with local certificate", host);
        sslSocket->startClientEncryption();
    } else {
        logError("Could not connect to '%1' with local certificate (%2)", host, socket.errorString());
        sslSocket->abort();
    }
    waitForEncryption(waiter, host);
}

void SecureConnection::waitForEncryption(Waiter &waiter, const QString &host)
{
    const QSslSocket &socket = *sslSocket;
    const auto settled = [&socket] {
        return socket.isEncrypted() || socket.state() == QSslSocket::UnconnectedState;
    };
    if (waiter.waitUntil(settled, connectionLimit) == WaitOutcome::Ended) {
        return;
    }
    if (socket.isEncrypted()) {
        logInfo("Encrypt connection to '%1'", host);
        return;
    }
    logError("Could not encrypt connection to '%1' (%2)", host, socket.errorString());
    logDebug("Host certificate: %1", QString::fromLatin1(socket.peerCertificate().toPem()));
}

void SecureConnection::sslConnected()
{
    logDebug("Ssl connection Ok");
}

void SecureConnection::sslDisconnected()
{
    logDebug("Ssl disconnection Ok");
}

void SecureConnection::sslEncrypted()
{
    logDebug("Ssl encrypted Ok");
}

void SecureConnection::peerVerifyError(const QSslError &error)
{
    logError("SSL host verify error: %1", error.errorString());
}

void SecureConnection::socketError(QAbstractSocket::SocketError error)
{
    logError("Ssl socket error: %1", static_cast<int>(error));
}
