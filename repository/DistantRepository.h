#pragma once

#include "repository/DavListing.h"
#include "repository/HttpEngine.h"
#include "repository/Repository.h"
#include "repository/SecureConnection.h"

#include <chrono>
#include <map>
#include <memory>

/// A repository on an HTTP or HTTPS server: each entry is a resource directly below the base URL.
///
/// A request ends when the server has answered, when the connection fails a second time, or after 30 s
/// without any progress, or with less than 1 kB/s over a minute; both limits hold for the requests that are
/// under way together. When the server is found to be gone, all fail at once until a Check finds it again.
/// Redirects are not followed; every status outside 2xx is a failure, but for 404: what is not there cannot
/// be fetched and need not be removed. With HTTPS each request carries the device's certificate and trusts
/// only the device's certificate authorities, as the last set-up found them; before the first it trusts
/// nobody.
class DistantRepository : public Repository
{
    Q_OBJECT

public:
    explicit DistantRepository(const QString &url);
    ~DistantRepository() override;

    QString getRepositoryUrl() const override { return repositoryUrl; }
    quint64 transferProgress() const override;
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
    void start(RequestNumber number, const RepositoryRequest &request) override;
    void abort() override;
    size_t mostAtOnce() const override { return 100; }

private:
    struct Transfer
    {
        RepositoryRequest request;
        HttpRequest sent;
    };

    struct Listing
    {
        RequestNumber number;
        DavListing list;
    };

    QString prepare(const RepositoryRequest &request, HttpRequest &made) const;
    HttpEngine &readyEngine();
    void end(RequestNumber number, const HttpResult &result);
    RequestOutcome outcomeOf(const Transfer &transfer, const HttpResult &result);
    static RequestOutcome successOf(const Transfer &transfer, const HttpResult &result);
    void readListing(RequestNumber number);
    void logFailure(const Transfer &transfer, const HttpResult &result);
    bool isTrusted(const QString &trustListStatus) const;

    const QString repositoryUrl;
    const bool secureMode;
    SecureConnection secureConnection;
    std::unique_ptr<HttpEngine> engine;
    bool engineIsStale = false; ///< it was made before the last set-up
    std::map<RequestNumber, Transfer> transfers;
    std::unique_ptr<Listing> listing; ///< that is being read
    quint64 movedBefore = 0;          ///< by engines that were replaced
    bool goneIsLogged = false;
    std::chrono::milliseconds inactivityLimit = std::chrono::seconds(30);
    std::chrono::milliseconds rateWindow = std::chrono::seconds(60);
};
