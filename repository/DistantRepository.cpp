#include "repository/DistantRepository.h"

#include "catalogue/ItemNames.h"
#include "platform/logger/VYXLogger.h"
#include "repository/RepositoryUrl.h"
#include "repository/SecureConnection.h"
#include "repository/ServerAnswer.h"
#include "repository/TransferWatch.h"

#include <QFileInfo>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QNetworkRequest>

#include <utility>

namespace {

using namespace ServerAnswer;

constexpr qint64 readBuffer = qint64{1024} * 1024;
RequestOutcome failure(const QNetworkReply &reply, const QString &text)
{
    return {RequestOutcome::Failed, text, isRefusal(statusOf(reply))};
}

/// A request that fails before anything is sent.
RequestOutcome unsent(const QString &text)
{
    logError("%1", text);
    return {RequestOutcome::Failed, text, true};
}

void logRequestErrors(const QList<QSslError> &errors)
{
    logError("Request got %1 ssl error(s)", errors.size());
    logSslErrors(errors);
}

} // namespace

DistantRepository::DistantRepository(const QString &url)
    : Repository(DistantRepositoryType), repositoryUrl(url), secureMode(RepositoryUrl::isSecure(url)),
      secureConnection(std::make_unique<SecureConnection>())
{
    networkManager.setProxy(QNetworkProxy::NoProxy);
    networkManager.setRedirectPolicy(QNetworkRequest::ManualRedirectPolicy);
    connect(&networkManager, &QNetworkAccessManager::sslErrors, this,
            [](const QNetworkReply *reply, const QList<QSslError> &errors) {
                logError("Request '%1' got ssl errors (%2)", reply->url().toString(), reply->errorString());
                logSslErrors(errors);
            });
}

DistantRepository::~DistantRepository()
{
    cancelRequests(noLongerInUse());
}

void DistantRepository::setUp(Waiter &waiter)
{
    const QString shown = RepositoryUrl::forDisplay(repositoryUrl);
    if (!secureMode) {
        logInfo("Set distant repository to HTTP: '%1'", shown);
        return;
    }
    logInfo("Set distant repository to HTTPS: '%1'", shown);
    auto connection = std::make_unique<SecureConnection>();
    connection->setUp(waiter, RepositoryUrl::base(repositoryUrl), [&] {
        logDebug("CTL is present: %1", checkCtlStatus(waiter, false) ? "true" : "false");
    });
    secureConnection = std::move(connection);
    connectionsAreStale = true;
}

bool DistantRepository::checkCtlStatus(Waiter &waiter, bool refresh)
{
    const QString status = SecureConnection::trustListStatus(waiter);
    if (!ctlCheckEnabled) {
        return true;
    }
    logDebug("CTL status: %1", status);
    const bool secured = status == "SECURED";
    if (refresh && secured && secureMode && secureConnection->needsSetUp()) {
        setUp(waiter);
    }
    return secured;
}

QNetworkRequest DistantRepository::requestFor(const QUrl &url) const
{
    QNetworkRequest request(url);
    request.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::AlwaysNetwork);
    request.setRawHeader("Accept-Encoding", "identity");
    request.setTransferTimeout(static_cast<int>(inactivityLimit.count()));
    const QByteArray authorization = RepositoryUrl::authorization(repositoryUrl);
    if (!authorization.isEmpty()) {
        request.setRawHeader("Authorization", authorization);
    }
    if (secureMode) {
        request.setSslConfiguration(secureConnection->configuration());
    }
    return request;
}

void DistantRepository::start(const RepositoryRequest &request)
{
    if (std::exchange(connectionsAreStale, false)) {
        networkManager.clearConnectionCache();
    }
    switch (request.method) {
    case RepositoryRequest::Check:
        startCheck();
        return;
    case RepositoryRequest::Put:
        startPut(request);
        return;
    case RepositoryRequest::Get:
        startGet(request);
        return;
    case RepositoryRequest::Remove:
        startRemove(request.entry);
        return;
    }
}

void DistantRepository::abort()
{
    download.drop();
    if (QNetworkReply *const reply = std::exchange(currentReply, nullptr)) {
        reply->disconnect(this);
        reply->abort();
        reply->deleteLater();
    }
}

/// The end is queued, so that who is told of it may destroy the repository, and the reply with it. What of an
/// answer is not read counts as no progress.
TransferWatch &DistantRepository::follow(QNetworkReply *reply, const Ending &ending)
{
    currentReply = reply;
    reply->setReadBufferSize(readBuffer);
    auto *const watch = new TransferWatch(*reply, rateWindow);
    connect(reply, &QNetworkReply::sslErrors, this, &logRequestErrors);
    const auto end = [this, reply, ending] {
        if (reply != currentReply) {
            return;
        }
        currentReply = nullptr;
        reply->deleteLater();
        finish(ending(*reply));
    };
    connect(reply, &QNetworkReply::finished, this, end, Qt::QueuedConnection);
    return *watch;
}

void DistantRepository::startCheck()
{
    const QString shown = RepositoryUrl::forDisplay(repositoryUrl);
    const QString problem = RepositoryUrl::problem(repositoryUrl);
    if (!problem.isEmpty()) {
        logError("Error: '%2' (%3)", problem, shown);
        finish({RequestOutcome::Failed, problem, true});
        return;
    }
    logDebug("Check if server and repository exist: '%1'", shown);
    QNetworkReply *const reply = networkManager.get(requestFor(RepositoryUrl::base(repositoryUrl)));
    TransferWatch &watch = follow(reply, [this](const QNetworkReply &ended) { return endCheck(ended); });
    connect(reply, &QNetworkReply::readyRead, &watch, &TransferWatch::dropAnswer);
}

void DistantRepository::startPut(const RepositoryRequest &request)
{
    const QString &path = request.path;
    const QUrl url = RepositoryUrl::entry(repositoryUrl, request.entry);
    logDebug("PUT '%1' to '%2'", ItemNames::lastComponent(path), url.toString());
    if (!QFile::exists(path)) {
        finish(unsent(QString("Could not upload file '%1': file does not exist!").arg(path)));
        return;
    }
    auto source = std::make_unique<DigestingFile>();
    if (!source->openRegular(path, request.within)) {
        finish(unsent(QString("Could not read file '%1'").arg(path)));
        return;
    }
    QNetworkReply *const reply = networkManager.put(requestFor(url), source.get());
    TransferWatch &watch =
        follow(reply, [sent = source.get()](const QNetworkReply &ended) { return endPut(ended, *sent); });
    source.release()->setParent(reply);
    connect(reply, &QNetworkReply::readyRead, &watch, &TransferWatch::dropAnswer);
    connect(reply, &QNetworkReply::uploadProgress, &watch, [this, &watch](qint64 done, qint64 total) {
        watch.noteUploaded(done, total);
        logProgress("PUT progess: %1%", done, total);
    });
}

void DistantRepository::startGet(const RepositoryRequest &request)
{
    logDebug("GET '%1/%2' to '%3'", RepositoryUrl::forDisplay(repositoryUrl), request.entry, request.path);
    if (!download.open(request.path, request.largest)) {
        download.drop();
        finish(unsent(QString("Could not create file '%1' on local file system").arg(request.path)));
        return;
    }
    QNetworkReply *const reply =
        networkManager.get(requestFor(RepositoryUrl::entry(repositoryUrl, request.entry)));
    TransferWatch &watch =
        follow(reply, [this, entry = request.entry](QNetworkReply &ended) { return endGet(ended, entry); });
    connect(reply, &QNetworkReply::readyRead, &watch,
            [this, reply, &watch, entry = request.entry] { receive(*reply, watch, entry); });
    connect(reply, &QNetworkReply::downloadProgress, this,
            [this](qint64 done, qint64 total) { logProgress("GET progess: %1%", done, total); });
}

void DistantRepository::startRemove(const QString &entry)
{
    logDebug("DELETE '%1/%2'", RepositoryUrl::forDisplay(repositoryUrl), entry);
    QNetworkReply *const reply =
        networkManager.deleteResource(requestFor(RepositoryUrl::entry(repositoryUrl, entry)));
    TransferWatch &watch = follow(reply, [](const QNetworkReply &ended) { return endRemove(ended); });
    connect(reply, &QNetworkReply::readyRead, &watch, &TransferWatch::dropAnswer);
}

/// What comes with another status than success is not the entry.
void DistantRepository::receive(QNetworkReply &reply, TransferWatch &watch, const QString &entry)
{
    if (!isSuccess(statusOf(reply))) {
        watch.dropAnswer();
        return;
    }
    noteProgress();
    download.expect(reply.header(QNetworkRequest::ContentLengthHeader).toLongLong());
    const qint64 before = download.size();
    download.take(reply);
    watch.noteMoved(download.size() - before);
    if (download.isTooLarge()) {
        watch.giveUp(tooLarge(entry, download.limit()));
    }
}

RequestOutcome DistantRepository::endCheck(const QNetworkReply &reply) const
{
    const QString reason = failureOf(reply);
    if (reason.isEmpty()) {
        return {};
    }
    const QString text = QString("%1 - %2").arg(reason, QString::number(reply.error()));
    logError("Error: '%2' (%3)", text, RepositoryUrl::forDisplay(repositoryUrl));
    return failure(reply, text);
}

RequestOutcome DistantRepository::endPut(const QNetworkReply &reply, const DigestingFile &sent)
{
    const QString text = failureOf(reply);
    if (text.isEmpty()) {
        logDebug("Uploaded %1 bytes", sent.size());
        return {RequestOutcome::Stored, {}, false, sent.digest()};
    }
    logError("Error [%1] in PUT request: '%2' (%3)", static_cast<int>(reply.error()), text,
             reply.url().toString());
    return failure(reply, text);
}

RequestOutcome DistantRepository::endGet(QNetworkReply &reply, const QString &entry)
{
    if (reply.error() == QNetworkReply::ContentNotFoundError && statusOf(reply) == notFound) {
        download.drop();
        logDebug("The repository holds no '%1'", entry);
        return {RequestOutcome::Absent, {}};
    }
    if (isSuccess(statusOf(reply))) {
        download.take(reply);
    }
    QString text =
        download.isTooLarge() ? tooLarge(entry, download.limit()) : failureOf(reply, download.size());
    if (text.isEmpty() && !download.finish()) {
        text = "The file could not be written";
    }
    if (text.isEmpty()) {
        logDebug("Downloaded %1 bytes", download.size());
        return {};
    }
    download.drop();
    logError("Error [%1] in GET request: '%2' (%3)", static_cast<int>(reply.error()), text,
             reply.url().toString());
    return failure(reply, text);
}

RequestOutcome DistantRepository::endRemove(const QNetworkReply &reply)
{
    const int status = statusOf(reply);
    const QString givenUp = TransferWatch::reasonOf(reply);
    const bool cutOff = reply.error() == QNetworkReply::OperationCanceledError ||
                        reply.error() == QNetworkReply::TimeoutError;
    if (status == 0 || cutOff || !givenUp.isEmpty()) {
        const QString text = givenUp.isEmpty() ? reply.errorString() : givenUp;
        logError("Error in DELETE: '%1' (%2)", text, static_cast<int>(reply.error()));
        return failure(reply, text);
    }
    const QString reason = reply.attribute(QNetworkRequest::HttpReasonPhraseAttribute).toString();
    if (isSuccess(status) || status == notFound) {
        logDebug("DELETE Ok: '%1' (%2)", reason, status);
        return {};
    }
    logError("DELETE Nok: '%1' (%2)", reason, status);
    return failure(reply, failureOf(reply));
}

void DistantRepository::logProgress(const char *format, qint64 done, qint64 total)
{
    noteProgress();
    if (total <= 0) {
        return;
    }
    const double percent = static_cast<double>(done) / static_cast<double>(total) * 100.0;
    const int whole = static_cast<int>(percent);
    if (percent - whole < 0.2 && whole % 10 == 0) {
        logDebug(format, QString::number(percent, 'f', 2));
    }
}
