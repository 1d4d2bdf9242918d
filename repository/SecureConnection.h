#pragma once

#include "repository/HttpTransfer.h"

#include <QString>
#include <QUrl>

#include <functional>

class Waiter;

/// The device's side of an HTTPS connection: its certificate and key, and the certificate authorities it
/// trusts, as the device's tool names their files. It trusts no other authority, whatever the system has
/// installed. Revocation lists among the authorities are heeded; then there must be one of each authority
/// that a server's certificate leads to.
class SecureConnection
{
public:
    /// Load the files anew and try to connect to the server. Every failure is logged; one with the files
    /// leaves an identity that is not complete. Waits for two minutes at the most, and ends early when the
    /// waiter has to end. `trustList` is told the state of the trust list between the queries of the files
    /// and their use.
    void setUp(Waiter &waiter, const QUrl &url, const std::function<void(const QString &)> &trustList);

    /// The state of the device's trust list as the tool tells it; "SECURED" when one is in force. Waits for
    /// 30 s at the most.
    static QString trustListStatus(Waiter &waiter);

    const TlsIdentity &identity() const { return loaded; }

    /// True when the certificate, the key or the authorities are missing, or the certificate is outside its
    /// validity.
    bool needsSetUp() const;

private:
    bool loadCertificate();
    bool loadAuthorities();
    bool loadKey();
    void tryConnection(Waiter &waiter, const QUrl &url);

    QString certificatePath;
    QString authoritiesPath;
    QString keyPath;
    TlsIdentity loaded;
};

/// True for those of the library's codes that TLS has brought about.
bool isTlsFailure(int code);

/// The error lines of a connection that TLS has refused.
void logTlsFailure(const QString &text);
