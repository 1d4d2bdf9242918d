#include "repository/DistantRepository.h"

#include "catalogue/ItemNames.h"
#include "platform/logger/VYXLogger.h"
#include "repository/RepositoryUrl.h"

#include <utility>

namespace {

constexpr int accepted = 202;
constexpr int multiStatus = 207;
constexpr int notFound = 404;
constexpr int insufficientStorage = 507;

/// The most bytes of a list of entries.
constexpr qint64 largestListing = qint64{256} * 1024 * 1024;

/// The server has refused the request without having changed anything.
bool isRefusal(int status)
{
    constexpr int serviceUnavailable = 503;
    return (status >= 400 && status <= 499) || status == serviceUnavailable || status == insufficientStorage;
}

RequestOutcome::Cause causeOf(const HttpResult &result)
{
    if (result.givenUp || result.status == 0) {
        return RequestOutcome::NoAnswer;
    }
    return result.status == insufficientStorage ? RequestOutcome::NoRoom : RequestOutcome::Other;
}

/// The number that an error is shown with.
int codeOf(const HttpResult &result)
{
    return result.code == CURLE_OK ? result.status : result.code;
}

} // namespace

DistantRepository::DistantRepository(const QString &url)
    : Repository(DistantRepositoryType), repositoryUrl(url), secureMode(RepositoryUrl::isSecure(url))
{
}

DistantRepository::~DistantRepository()
{
    cancelRequests(noLongerInUse());
}

quint64 DistantRepository::transferProgress() const
{
    return Repository::transferProgress() + movedBefore + (engine ? engine->progress() : 0);
}

void DistantRepository::setUp(Waiter &waiter)
{
    const QString shown = RepositoryUrl::forDisplay(repositoryUrl);
    if (!secureMode) {
        logDebug("Set distant repository to HTTP: '%1'", shown);
        return;
    }
    logDebug("Set distant repository to HTTPS: '%1'", shown);
    SecureConnection connection;
    connection.setUp(waiter, RepositoryUrl::base(repositoryUrl), [this](const QString &trustListStatus) {
        logDebug("CTL is present: %1", isTrusted(trustListStatus) ? "true" : "false");
    });
    secureConnection = connection;
    engineIsStale = true;
}

bool DistantRepository::isTrusted(const QString &trustListStatus) const
{
    if (!ctlCheckEnabled) {
        return true;
    }
    logDebug("CTL status: %1", trustListStatus);
    return trustListStatus == "SECURED";
}

bool DistantRepository::checkCtlStatus(Waiter &waiter, bool refresh)
{
    const QString status = SecureConnection::trustListStatus(waiter);
    const bool trusted = isTrusted(status);
    if (refresh && status == "SECURED" && ctlCheckEnabled && secureMode && secureConnection.needsSetUp()) {
        setUp(waiter);
    }
    return trusted;
}

/// Connections that stand keep the identity with which they were made.
HttpEngine &DistantRepository::readyEngine()
{
    if (engine && engineIsStale && transfers.empty()) {
        movedBefore += engine->progress();
        engine.reset();
    }
    if (!engine) {
        engineIsStale = false;
        engine = std::make_unique<HttpEngine>(
            HttpSettings{.baseUrl = RepositoryUrl::base(repositoryUrl).toEncoded(),
                         .authorization = RepositoryUrl::authorization(repositoryUrl),
                         .identity = secureConnection.identity(),
                         .inactivityLimit = inactivityLimit,
                         .rateWindow = rateWindow},
            [this](quint64 number, const HttpResult &result) {
                QMetaObject::invokeMethod(
                    this, [=, this] { end(number, result); }, Qt::QueuedConnection);
            });
    }
    return *engine;
}

void DistantRepository::start(RequestNumber number, const RepositoryRequest &request)
{
    HttpRequest made = {.url = RepositoryUrl::entry(repositoryUrl, request.entry).toEncoded()};
    const bool unknown = secureMode && !secureConnection.identity().isComplete();
    const QString problem = unknown ? "The device's certificate, its key or its authorities cannot be used"
                            : curl().fault.isEmpty() ? prepare(request, made)
                                                     : curl().fault;
    if (!problem.isEmpty()) {
        if (request.method == RepositoryRequest::Check) {
            logError("Error: '%2' (%3)", problem, RepositoryUrl::forDisplay(repositoryUrl));
        } else {
            logError("%1", problem);
        }
        finish(number, {RequestOutcome::Failed, problem, true});
        return;
    }
    HttpEngine &ready = readyEngine();
    transfers.emplace(number, Transfer{request, made});
    ready.add(number, made);
}

/// Why the request cannot be sent; nothing when it can.
QString DistantRepository::prepare(const RepositoryRequest &request, HttpRequest &made) const
{
    const QString shown = RepositoryUrl::forDisplay(repositoryUrl);
    switch (request.method) {
    case RepositoryRequest::Check:
        logDebug("Check if server and repository exist: '%1'", shown);
        made.url = RepositoryUrl::base(repositoryUrl).toEncoded();
        made.asksServer = true;
        return RepositoryUrl::problem(repositoryUrl);
    case RepositoryRequest::Put:
        logDebug("PUT '%1' to '%2'", ItemNames::lastComponent(request.path), QString::fromUtf8(made.url));
        made.method = HttpRequest::Put;
        made.source = std::make_shared<DigestingFile>();
        if (!QFile::exists(request.path)) {
            return QString("Could not upload file '%1': file does not exist!").arg(request.path);
        }
        return made.source->openRegular(request.path, request.within)
                   ? QString()
                   : QString("Could not read file '%1'").arg(request.path);
    case RepositoryRequest::Get:
        logDebug("GET '%1/%2' to '%3'", shown, request.entry, request.path);
        made.target = std::make_shared<DownloadFile>();
        return made.target->open(request.path, request.largest)
                   ? QString()
                   : QString("Could not create file '%1' on local file system").arg(request.path);
    case RepositoryRequest::Remove:
        logDebug("DELETE '%1/%2'", shown, request.entry);
        made.method = HttpRequest::Delete;
        break;
    case RepositoryRequest::Look:
        logDebug("HEAD '%1/%2'", shown, request.entry);
        made.method = HttpRequest::Head;
        break;
    case RepositoryRequest::List:
        logDebug("PROPFIND '%1/'", shown);
        made.url = RepositoryUrl::base(repositoryUrl).toEncoded() + "/";
        made.method = HttpRequest::PropFind;
        made.target = std::make_shared<DownloadFile>();
        return made.target->open(request.path, largestListing)
                   ? QString()
                   : QString("Could not create file '%1' on local file system").arg(request.path);
    }
    return {};
}

void DistantRepository::abort()
{
    if (engine) {
        engine->forgetAll();
    }
    transfers.clear();
    listing.reset();
}

void DistantRepository::end(RequestNumber number, const HttpResult &result)
{
    const auto ended = transfers.extract(number);
    if (ended.empty()) {
        return;
    }
    const RequestOutcome outcome = outcomeOf(ended.mapped(), result);
    const RepositoryRequest &request = ended.mapped().request;
    if (request.method != RepositoryRequest::List || !outcome.stored()) {
        finish(number, outcome);
        return;
    }
    // It cannot be moved. NOLINTNEXTLINE(modernize-make-unique)
    listing.reset(new Listing{number, DavListing(request.path, mostListed)});
    QFile::remove(request.path);
    readListing(number);
}

RequestOutcome DistantRepository::outcomeOf(const Transfer &transfer, const HttpResult &result)
{
    const RepositoryRequest &request = transfer.request;
    const bool answered = result.status != 0 && result.code == CURLE_OK;
    goneIsLogged = goneIsLogged && !answered;
    HttpResult ending = result;
    const bool asksForOne =
        request.method == RepositoryRequest::Get || request.method == RepositoryRequest::Look;
    if (answered && request.method == RepositoryRequest::List && result.status != multiStatus) {
        return {.kind = RequestOutcome::Failed,
                .text = QString("The server does not list its entries (%1)").arg(result.status),
                .entryUntouched = true,
                .cause = RequestOutcome::NotSupported};
    }
    if (answered && result.status == notFound && asksForOne) {
        logDebug("The repository holds no '%1'", request.entry);
        return {RequestOutcome::Absent, {}};
    }
    if (answered && result.status == notFound && request.method == RepositoryRequest::Remove) {
        ending.text.clear();
    }
    if (answered && result.status == accepted && (transfer.sent.source || transfer.sent.target)) {
        ending.text = "The server has accepted the request and not carried it out";
    }
    if (ending.text.isEmpty() && transfer.sent.target && !transfer.sent.target->finish()) {
        ending.text = "The file could not be written";
    }
    if (transfer.sent.target && transfer.sent.target->isTooLarge()) {
        ending.text = tooLarge(request.entry, transfer.sent.target->limit());
    }
    if (!ending.text.isEmpty()) {
        logFailure(transfer, ending);
        const bool untouched = !result.wasSent || (answered && isRefusal(result.status));
        const bool isCheck = request.method == RepositoryRequest::Check;
        const QString text = isCheck ? QString("%1 - %2").arg(ending.text).arg(codeOf(result)) : ending.text;
        return {RequestOutcome::Failed, text, untouched, {}, causeOf(result)};
    }
    return successOf(transfer, result);
}

RequestOutcome DistantRepository::successOf(const Transfer &transfer, const HttpResult &result)
{
    const RepositoryRequest &request = transfer.request;
    if (transfer.sent.source) {
        logDebug("Uploaded %1 bytes", transfer.sent.source->size());
        return {RequestOutcome::Stored, {}, false, transfer.sent.source->digest()};
    }
    if (transfer.sent.target) {
        logDebug("Downloaded %1 bytes", transfer.sent.target->size());
    } else if (request.method == RepositoryRequest::Remove) {
        logDebug("DELETE Ok: (%1)", result.status);
    }
    return {.size = request.method == RepositoryRequest::Look ? result.size : -1};
}

/// Portion by portion, with events served.
void DistantRepository::readListing(RequestNumber number)
{
    if (!listing || listing->number != number) {
        return; // given up
    }
    const DavListing::State state = listing->list.advance();
    if (state == DavListing::State::More) {
        noteProgress();
        QMetaObject::invokeMethod(
            this, [=, this] { readListing(number); }, Qt::QueuedConnection);
        return;
    }
    RequestOutcome outcome = {.entries = listing->list.entries()};
    if (state == DavListing::State::Refused) {
        outcome = {RequestOutcome::Failed, "The server's list of entries cannot be read", true};
    }
    listing.reset();
    finish(number, outcome);
}

/// When the server is gone, one line is enough for all.
void DistantRepository::logFailure(const Transfer &transfer, const HttpResult &result)
{
    const QString url = QString::fromUtf8(transfer.sent.url);
    const int code = codeOf(result);
    if (result.givenUp && transfer.request.method != RepositoryRequest::Check) {
        if (!std::exchange(goneIsLogged, true)) {
            logError("%1", result.text);
        }
        return;
    }
    if (isTlsFailure(result.code)) {
        logError("Request '%1' got ssl errors (%2)", url, result.text);
        logTlsFailure(result.text);
    }
    switch (transfer.request.method) {
    case RepositoryRequest::Check:
        logError("Error: '%2' (%3)", QString("%1 - %2").arg(result.text).arg(code),
                 RepositoryUrl::forDisplay(repositoryUrl));
        return;
    case RepositoryRequest::Put:
        logError("Error [%1] in PUT request: '%2' (%3)", code, result.text, url);
        return;
    case RepositoryRequest::Get:
        logError("Error [%1] in GET request: '%2' (%3)", code, result.text, url);
        return;
    case RepositoryRequest::Remove:
        if (result.status == 0) {
            logError("Error in DELETE: '%1' (%2)", result.text, code);
        } else {
            logError("DELETE Nok: '%1' (%2)", result.text, result.status);
        }
        return;
    case RepositoryRequest::Look:
        logError("Error [%1] in HEAD request: '%2' (%3)", code, result.text, url);
        return;
    case RepositoryRequest::List:
        logError("Error [%1] in PROPFIND request: '%2' (%3)", code, result.text, url);
        return;
    }
}
