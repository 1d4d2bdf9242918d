#pragma once

#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSslKey>
#include <QSslSocket>
#include <QString>
#include <QUrl>

#include <memory>

class Waiter;

/// The device's side of an HTTPS connection: its certificate and key, and the certificate authorities it
/// trusts, as the device's tool names their files. It trusts no other authority, whatever the system has
/// installed.
class SecureConnection : public QObject
{
    Q_OBJECT

public:
    SecureConnection();

    /// Load the files anew and try to connect to the server. Every failure is logged; one with the files
    /// leaves a configuration without certificate and without trust. Waits for three minutes at the most, and
    /// ends early when the waiter has to end. `checkTrustList` is called between the queries of the files and
    /// their use.
    template <typename Callback> void setUp(Waiter &waiter, const QUrl &url, const Callback &checkTrustList)
    {
        queryFiles(waiter);
        checkTrustList();
        useFiles(waiter, url);
    }

    /// The state of the device's trust list as the tool tells it; "SECURED" when one is in force. Waits for
    /// 30 s at the most.
    static QString trustListStatus(Waiter &waiter);

    const QSslConfiguration &configuration() const { return sslConfiguration; }

    /// True when the certificate, the key or the authorities are missing, or the certificate is outside its
    /// validity.
    bool needsSetUp() const;

private Q_SLOTS:
    void sslConnected();
    void sslDisconnected();
    void sslEncrypted();
    void peerVerifyError(const QSslError &error);
    void socketError(QAbstractSocket::SocketError error);

private:
    void queryFiles(Waiter &waiter);
    void useFiles(Waiter &waiter, const QUrl &url);
    bool loadCertificate();
    bool loadAuthorities();
    bool loadKey();
    void connectSocket();
    void tryConnection(Waiter &waiter, const QUrl &url);
    void waitForEncryption(Waiter &waiter, const QString &host);

    QString certificatePath;
    QString authoritiesPath;
    QString keyPath;
    QSslCertificate certificate;
    QList<QSslCertificate> authorities;
    QSslKey key;
    QSslConfiguration sslConfiguration;
    std::unique_ptr<QSslSocket> sslSocket;
};

/// One error line for the number of errors and one for each.
void logSslErrors(const QList<QSslError> &errors);
