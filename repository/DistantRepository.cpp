#include "repository/DistantRepository.h"

#include "catalogue/ItemNames.h"
#include "platform/core/Waiter.h"
#include "platform/logger/VYXLogger.h"
#include "repository/RepositoryUrl.h"
#include "repository/SecureConnection.h"

#include <QFileInfo>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QNetworkRequest>

#include <utility>

using namespace std::chrono_literals;

namespace {

constexpr qint64 readBuffer = qint64{1024} * 1024;
constexpr auto checkLimit = 120s;

/// Why a finished reply is no success; empty when it is one. After a time-out the status may still say 200.
QString failureOf(const QNetworkReply &reply, qint64 received = -1)
{
    if (reply.error() != QNetworkReply::NoError) {
        return reply.errorString();
    }
    const int status = reply.attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    if (status < 200 || status > 299) {
        return QString("The server answered with status %1").arg(status);
    }
    const QVariant announced = reply.header(QNetworkRequest::ContentLengthHeader);
    const bool plain = !reply.hasRawHeader("Content-Encoding");
    if (received >= 0 && plain && announced.isValid() && announced.toLongLong() != received) {
        return "The server sent fewer bytes than announced";
    }
    return {};
}

ItemNames::EntryName entryOf(const RepositoryRequest &request)
{
    return {request.second, ItemNames::lastComponent(request.first)};
}

} // namespace

DistantRepository::DistantRepository()
    : RepositoryManager(DistantRepositoryType), networkManager(std::make_unique<QNetworkAccessManager>()),
      httpClient(std::make_unique<DeleteClient>(*networkManager))
{
    networkManager->setProxy(QNetworkProxy::NoProxy);
    networkManager->setRedirectPolicy(QNetworkRequest::ManualRedirectPolicy);
    QNetworkAccessManager *const manager = networkManager.get();
    connect(manager, &QNetworkAccessManager::finished, this, &DistantRepository::handleGetFinished);
    connect(manager, &QNetworkAccessManager::finished, this, &DistantRepository::handlePutFinished);
    connect(manager, &QNetworkAccessManager::sslErrors, this, &DistantRepository::handleSslErrors);
    connect(httpClient.get(), &DeleteClient::responseHeaderReceived, this,
            qOverload<const HttpResponseHeader &>(&DistantRepository::handleDeleteFinished));
    connect(httpClient.get(), &DeleteClient::requestFinished, this,
            qOverload<int, bool>(&DistantRepository::handleDeleteFinished));
    connect(httpClient.get(), &DeleteClient::sslErrors, this, &DistantRepository::sslError);
    connect(this, &DistantRepository::newRepositoryOperation, this, &DistantRepository::handleNewRequest);
    connect(this, &RepositoryManager::repositoryManagerReady, this, &DistantRepository::handleNewRequest);
}

DistantRepository::DistantRepository(const QString &url) : DistantRepository()
{
    DistantRepository::setRepositoryUrl(url);
}

DistantRepository::~DistantRepository()
{
    dropRequests();
}

void DistantRepository::abandon()
{
    RepositoryManager::abandon();
    dropRequests();
    busy = false;
    fail("The repository is no longer in use");
}

void DistantRepository::dropRequests()
{
    requestQueue.clear();
    networkManager->disconnect(this);
    httpClient->disconnect(this);
    if (currentReply) {
        currentReply->disconnect(this);
        currentReply->abort();
    }
}

void DistantRepository::setRepositoryUrl(QString url)
{
    if (url != repositoryUrl) {
        // What was asked for belongs to the old place; the request under way ends by itself.
        requestQueue.clear();
    }
    repositoryUrl = url;
    secureMode = RepositoryUrl::isSecure(url);
    networkManager->clearConnectionCache();
    const QString shown = RepositoryUrl::forDisplay(url);
    if (!secureMode) {
        logInfo("Set distant repository to HTTP: '%1'", shown);
        return;
    }
    secureConnection = std::make_unique<SecureConnection>();
    logInfo("Set distant repository to HTTPS: '%1'", shown);
    secureConnection->setUp(RepositoryUrl::base(url), [this] {
        logDebug("CTL is present: %1", checkCtlStatus(false) ? "true" : "false");
    });
}

bool DistantRepository::checkCtlStatus(bool refresh)
{
    const QString status = SecureConnection::trustListStatus();
    if (!ctlCheckEnabled) {
        return true;
    }
    logDebug("CTL status: %1", status);
    const bool secured = status == "SECURED";
    const bool incomplete = secureConnection ? secureConnection->needsSetUp() : secureMode;
    if (refresh && secured && incomplete) {
        setRepositoryUrl(repositoryUrl);
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

bool DistantRepository::enqueue(const QString &method, const QString &first, const QString &second)
{
    const QString name = ItemNames::lastComponent(first);
    if (name.isEmpty() || name == "." || name == "..") {
        logError("'%1' names no file of the repository", first);
        return false;
    }
    requestQueue << RepositoryRequest{method, first, second};
    Q_EMIT newRepositoryOperation();
    return true;
}

bool DistantRepository::sendFileToRepository(QString fullPathFile, QString prefix)
{
    return enqueue("PUT", fullPathFile, prefix);
}

bool DistantRepository::getFileFromRepository(QString savedFilename, QString where)
{
    return enqueue("GET", savedFilename, where);
}

bool DistantRepository::removeFileFromRepository(QString fullPathFile, QString prefix)
{
    return enqueue("DELETE", fullPathFile, prefix);
}

bool DistantRepository::sendFilesToRepository(QStringList fullPathFiles, QString prefix)
{
    for (const QString &file : fullPathFiles) {
        sendFileToRepository(file, prefix);
    }
    return true;
}

bool DistantRepository::getFilesFromRepository(QStringList savedFilenames, QString where)
{
    for (const QString &file : savedFilenames) {
        getFileFromRepository(file, where);
    }
    return true;
}

bool DistantRepository::removeFilesFromRepository(QStringList fullPathFiles, QString prefix)
{
    for (const QString &file : fullPathFiles) {
        removeFileFromRepository(file, prefix);
    }
    return true;
}

/// Requests that end while they are started (a file that is missing) are gone through in this loop, so that
/// their number does not matter.
void DistantRepository::handleNewRequest()
{
    if (startingRequests) {
        return;
    }
    startingRequests = true;
    while (!requestQueue.isEmpty() && !busy) {
        busy = true;
        if (!start(requestQueue.takeFirst())) {
            busy = false;
            Q_EMIT repositoryManagerReady();
            if (std::exchange(sendFailedAtStart, false)) {
                Q_EMIT repositoryOperationDone();
            }
        }
    }
    startingRequests = false;
    if (requestQueue.isEmpty() && !busy) {
        logDebug("All repository operations done");
        Q_EMIT repositoryAllOperationsDone();
    }
}

bool DistantRepository::start(const RepositoryRequest &request)
{
    ++progress;
    if (request.method == "PUT") {
        return startPut(request);
    }
    return request.method == "GET" ? startGet(request) : startDelete(request);
}

bool DistantRepository::startPut(const RepositoryRequest &request)
{
    const QString &path = request.first;
    const QUrl url = RepositoryUrl::entry(repositoryUrl, entryOf(request).text());
    logDebug("PUT '%1' to '%2'", ItemNames::lastComponent(path), url.toString());
    if (!QFile::exists(path)) {
        logError("Could not upload file '%1': file does not exist!", path);
        return false;
    }
    transferFile.setFileName(path);
    if (!QFileInfo(path).isFile() || !transferFile.open(QIODevice::ReadOnly)) {
        logError("Could not read file '%1'", path);
        fail(QString("Could not read file '%1'").arg(path));
        sendFailedAtStart = true;
        return false;
    }
    currentReply = networkManager->put(requestFor(url), &transferFile);
    connect(currentReply, &QNetworkReply::uploadProgress, this, &DistantRepository::handlePutProgress);
    connect(currentReply, &QNetworkReply::sslErrors, this, &DistantRepository::sslError);
    return true;
}

bool DistantRepository::startGet(const RepositoryRequest &request)
{
    logDebug("GET '%1/%2' to '%3'", RepositoryUrl::forDisplay(repositoryUrl), request.first, request.second);
    if (!download.open(request.second)) {
        logError("Could not create file '%1' on local file system", request.second);
        fail(QString("Could not create file '%1' on local file system").arg(request.second));
        return false;
    }
    const QUrl url = RepositoryUrl::entry(repositoryUrl, ItemNames::lastComponent(request.first));
    currentReply = networkManager->get(requestFor(url));
    currentReply->setReadBufferSize(readBuffer);
    connect(currentReply, &QNetworkReply::readyRead, this, [this, reply = currentReply.data()] {
        if (reply == currentReply) {
            download.take(*reply);
        }
    });
    connect(currentReply, &QNetworkReply::sslErrors, this, &DistantRepository::sslError);
    connect(currentReply, &QNetworkReply::downloadProgress, this, &DistantRepository::handleGetProgess);
    return true;
}

bool DistantRepository::startDelete(const RepositoryRequest &request)
{
    logDebug("DELETE '%1/%2%3%4'", RepositoryUrl::forDisplay(repositoryUrl), request.second,
             request.second.isEmpty() ? "" : "++", request.first);
    currentReply = nullptr;
    currentDelete =
        httpClient->request(requestFor(RepositoryUrl::entry(repositoryUrl, entryOf(request).text())));
    return true;
}

void DistantRepository::fail(const QString &text)
{
    errorStatus = RequestFailed;
    errorString = text;
}

void DistantRepository::finishRequest()
{
    ++progress;
    currentReply = nullptr;
    busy = false;
    Q_EMIT repositoryManagerReady();
}

void DistantRepository::handlePutFinished(QNetworkReply *reply)
{
    if (reply->operation() != QNetworkAccessManager::PutOperation) {
        return;
    }
    reply->deleteLater();
    if (reply != currentReply) {
        return;
    }
    const QString failure = failureOf(*reply);
    if (failure.isEmpty()) {
        logDebug("Uploaded %1 bytes", transferFile.size());
    } else {
        logError("Error [%1] in PUT request: '%2' (%3)", static_cast<int>(reply->error()), failure,
                 reply->url().toString());
        fail(failure);
    }
    transferFile.close();
    finishRequest();
    Q_EMIT repositoryOperationDone();
}

void DistantRepository::handleGetFinished(QNetworkReply *reply)
{
    if (reply->operation() != QNetworkAccessManager::GetOperation || reply != currentReply ||
        reply->property("check").toBool()) {
        return;
    }
    reply->deleteLater();
    download.take(*reply);
    QString failure = failureOf(*reply, download.size());
    if (failure.isEmpty() && !download.finish()) {
        failure = "The file could not be written";
    }
    if (failure.isEmpty()) {
        logDebug("Downloaded %1 bytes", download.size());
    } else {
        logError("Error [%1] in GET request: '%2' (%3)", static_cast<int>(reply->error()), failure,
                 reply->url().toString());
        fail(failure);
        download.fail();
    }
    finishRequest();
}

void DistantRepository::handleDeleteFinished(const HttpResponseHeader &header)
{
    constexpr int ok = 200;
    answeredDelete = currentDelete;
    if (header.statusCode == ok) {
        logDebug("DELETE Ok: '%1' (%2)", header.reasonPhrase, header.statusCode);
    } else {
        logError("DELETE Nok: '%1' (%2)", header.reasonPhrase, header.statusCode);
    }
    finishRequest();
}

void DistantRepository::handleDeleteFinished(int id, bool error)
{
    if (!error) {
        return;
    }
    logError("Error in DELETE: '%1' (%2)", httpClient->errorString(), httpClient->error());
    fail(httpClient->errorString());
    if (id != answeredDelete) {
        finishRequest();
    }
}

void DistantRepository::logProgress(const char *format, qint64 done, qint64 total)
{
    ++progress;
    if (total <= 0) {
        return;
    }
    const double percent = static_cast<double>(done) / static_cast<double>(total) * 100.0;
    const int whole = static_cast<int>(percent);
    if (percent - whole < 0.2 && whole % 10 == 0) {
        logDebug(format, QString::number(percent, 'f', 2));
    }
}

void DistantRepository::handlePutProgress(qint64 done, qint64 total)
{
    logProgress("PUT progess: %1%", done, total);
}

void DistantRepository::handleGetProgess(qint64 done, qint64 total)
{
    logProgress("GET progess: %1%", done, total);
}

bool DistantRepository::checkRepository()
{
    const QString problem = RepositoryUrl::problem(repositoryUrl);
    if (!problem.isEmpty()) {
        fail(problem);
        logError("Error: '%2' (%3)", problem, RepositoryUrl::forDisplay(repositoryUrl));
        return false;
    }
    Waiter waiter;
    if (waiter.waitUntil([this] { return !hasPendingRequests(); }, checkLimit, [this] { return progress; }) !=
        WaitOutcome::Met) {
        fail("Transfers are still under way");
        return false;
    }
    busy = true;
    logDebug("Check if server and repository exist: '%1'", RepositoryUrl::forDisplay(repositoryUrl));
    QNetworkReply *const reply = networkManager->get(requestFor(RepositoryUrl::base(repositoryUrl)));
    reply->setProperty("check", true);
    currentReply = reply;
    connect(reply, &QNetworkReply::sslErrors, this, &DistantRepository::sslError);
    connect(networkManager.get(), &QNetworkAccessManager::finished, this,
            &DistantRepository::slotCheckConnection);
    const QPointer<QNetworkReply> checking = reply;
    const WaitOutcome outcome =
        waiter.waitUntil([this, &checking] { return !busy || !checking; }, checkLimit);
    if (outcome != WaitOutcome::Met && checking) {
        checking->abort(); // ends in slotCheckConnection
    }
    const bool reached = errorStatus != RequestFailed;
    if (!reached) {
        logError("Error: '%2' (%3)", errorString, RepositoryUrl::forDisplay(repositoryUrl));
    }
    if (!requestQueue.isEmpty()) {
        handleNewRequest();
    }
    return reached;
}

void DistantRepository::slotCheckConnection(QNetworkReply *reply)
{
    if (!reply->property("check").toBool()) {
        return;
    }
    resetErrorStatus();
    disconnect(networkManager.get(), &QNetworkAccessManager::finished, this,
               &DistantRepository::slotCheckConnection);
    reply->deleteLater();
    const QString failure = failureOf(*reply);
    if (!failure.isEmpty()) {
        fail(QString("%1 - %2").arg(failure, QString::number(reply->error())));
    }
    currentReply = nullptr;
    busy = false;
}

void DistantRepository::sslError(const QList<QSslError> &errors)
{
    logError("Request got %1 ssl error(s)", errors.size());
    logSslErrors(errors);
}

void DistantRepository::handleSslErrors(QNetworkReply *reply, const QList<QSslError> &errors)
{
    logError("Request '%1' got ssl errors (%2)", reply->url().toString(), reply->errorString());
    logSslErrors(errors);
    fail(reply->errorString());
}
