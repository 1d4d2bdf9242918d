#pragma once

#include "repository/DigestingFile.h"
#include "repository/DownloadFile.h"
#include "repository/Repository.h"

#include <QNetworkAccessManager>
#include <QPointer>
#include <QSslError>

#include <chrono>
#include <functional>
#include <memory>

class QNetworkReply;
class SecureConnection;
class TransferWatch;

/// A repository on an HTTP or HTTPS server: each entry is a resource directly below the base URL.
///
/// A request ends when the server has answered, when the connection fails, or after 30 s without any
/// progress, or with less than 1 kB/s over a minute. Redirects are not followed; every status outside 2xx is
/// a failure, but for 404: what is not there cannot be fetched and need not be removed. With HTTPS each
/// request carries the device's certificate and trusts only the device's certificate authorities, as the last
/// set-up found them; before the first it trusts nobody.
class DistantRepository : public Repository
{
    Q_OBJECT

public:
    explicit DistantRepository(const QString &url);
    ~DistantRepository() override;

    QString getRepositoryUrl() const override { return repositoryUrl; }
    /// With HTTPS, load the device's certificate, key and authorities and try to connect. The repository must
    /// outlive the call.
    void setUp(Waiter &waiter) override;
    bool checkCtlStatus(Waiter &waiter, bool refresh) override;

    /// The trust list is looked at; cleared in developer mode.
    bool ctlCheckEnabled = true;

    /// How long a request may go without any progress.
    void setInactivityLimit(std::chrono::milliseconds limit) { inactivityLimit = limit; }
    /// How long a window of time is over which the rate of a transfer is averaged.
    void setRateWindow(std::chrono::milliseconds window) { rateWindow = window; }

protected:
    void start(const RepositoryRequest &request) override;
    void abort() override;

private:
    using Ending = std::function<RequestOutcome(QNetworkReply &)>;

    void startCheck();
    void startPut(const RepositoryRequest &request);
    void startGet(const RepositoryRequest &request);
    void startRemove(const QString &entry);
    TransferWatch &follow(QNetworkReply *reply, const Ending &ending);
    void receive(QNetworkReply &reply, TransferWatch &watch, const QString &entry);

    static RequestOutcome endPut(const QNetworkReply &reply, const DigestingFile &sent);
    RequestOutcome endGet(QNetworkReply &reply, const QString &entry);
    static RequestOutcome endRemove(const QNetworkReply &reply);
    RequestOutcome endCheck(const QNetworkReply &reply) const;

    QNetworkRequest requestFor(const QUrl &url) const;
    void logProgress(const char *format, qint64 done, qint64 total);

    const QString repositoryUrl;
    const bool secureMode;
    std::unique_ptr<SecureConnection> secureConnection;
    QNetworkAccessManager networkManager;
    bool connectionsAreStale = false; ///< they were made before the last set-up
    QPointer<QNetworkReply> currentReply;
    DownloadFile download;
    std::chrono::milliseconds inactivityLimit = std::chrono::seconds(30);
    std::chrono::milliseconds rateWindow = std::chrono::seconds(60);
};
