#include "repository/LocalRepository.h"

#include "catalogue/ItemNames.h"
#include "platform/logger/VYXLogger.h"
#include "repository/RepositoryUrl.h"

#include <QDir>
#include <QFileInfo>

#include <cerrno>
#include <cstdio>
#include <sys/stat.h>

using namespace std::chrono_literals;

namespace {

constexpr qint64 portion = qint64{1024} * 1024;
constexpr qint64 mostParkedBytes = 64 * portion;
constexpr qsizetype mostParked = 1000;
constexpr std::chrono::seconds lookPeriod = 10s;
constexpr std::chrono::seconds longestSync = 5min;

QString incomingPrefix()
{
    return ItemNames::ownPrefix() + "incoming";
}

/// True when there is nothing of that name, or can be nothing.
bool isMissing(const QString &path)
{
    struct stat status = {};
    return lstat(QFile::encodeName(path).constData(), &status) != 0 &&
           (errno == ENOENT || errno == ENAMETOOLONG);
}

/// Where there is room for a part only, nothing but the next attempt tells why.
bool writeWhole(QFile &file, const QByteArray &bytes)
{
    const qint64 taken = file.write(bytes);
    const qint64 rest = bytes.size() - taken;
    return rest == 0 || (taken > 0 && file.write(bytes.mid(static_cast<qsizetype>(taken))) == rest);
}

RequestOutcome failure(const QString &text)
{
    return {RequestOutcome::Failed, text, true};
}

RequestOutcome loggedFailure(const QString &text)
{
    logError("%1", text);
    return failure(text);
}

} // namespace

LocalRepository::LocalRepository(const QString &directory)
    : Repository(LocalRepositoryType), directory(directory)
{
    if (!QFileInfo(directory).isDir()) {
        logWarning("Invalid save/restore directory: '%1'", RepositoryUrl::forDisplay(directory));
    }
    turn.setInterval(0);
    connect(&turn, &QTimer::timeout, this, &LocalRepository::advance);
    patience.setInterval(lookPeriod);
    connect(&patience, &QTimer::timeout, this, [this] {
        waited += lookPeriod;
        if (waited < longestSync) {
            noteProgress();
        }
    });
}

LocalRepository::~LocalRepository()
{
    cancelRequests(noLongerInUse());
}

QString LocalRepository::entryPath() const
{
    return QString("%1/%2").arg(QDir(directory).path(), underWay.entry);
}

void LocalRepository::start(RequestNumber number, const RepositoryRequest &request)
{
    underWay = request;
    underWayNumber = number;
    if (!isInitialised()) {
        const QString text = "Local save directory not initialized!";
        RequestOutcome outcome =
            request.method == RepositoryRequest::Check ? failure(text) : loggedFailure(text);
        outcome.cause = RequestOutcome::NoAnswer;
        finish(underWayNumber, outcome);
        return;
    }
    if (!ItemNames::canBeEntry(request.entry)) {
        finish(underWayNumber,
               loggedFailure(QString("'%1' names no file of the repository").arg(request.entry)));
        return;
    }
    switch (request.method) {
    case RepositoryRequest::Check:
        finish(underWayNumber, {});
        return;
    case RepositoryRequest::Put:
        startPut();
        return;
    case RepositoryRequest::Get:
        startGet();
        return;
    case RepositoryRequest::Remove:
        remove();
        return;
    case RepositoryRequest::Look:
        finish(underWayNumber, look());
        return;
    case RepositoryRequest::List:
        turn.start();
        return;
    }
}

void LocalRepository::abort()
{
    turn.stop();
    listing.reset();
    source.close();
    download.drop();
    if (incoming.isOpen()) {
        incoming.close();
        QFile::remove(incoming.fileName());
    }
}

/// What an interrupted process or anybody else has left.
void LocalRepository::dropLeftovers() const
{
    const QDir place(directory);
    for (const QString &left :
         place.entryList({incomingPrefix() + "*"}, QDir::AllEntries | QDir::Hidden | QDir::System)) {
        QFile::remove(place.filePath(left));
    }
}

bool LocalRepository::openIncoming()
{
    static int made = 0;
    if (!hasParked()) {
        dropLeftovers();
    }
    incoming.setFileName(QString("%1/%2.%3").arg(QDir(directory).path(), incomingPrefix()).arg(++made));
    return incoming.open(QIODevice::WriteOnly | QIODevice::NewOnly | QIODevice::Unbuffered,
                         QFile::ReadOwner | QFile::WriteOwner);
}

bool LocalRepository::isWritten(bool copied)
{
    if (!copied) {
        return false;
    }
    incoming.setPermissions(source.permissions());
    incoming.close();
    const bool written = incoming.error() == QFile::NoError; // of the close alone
    if (!written) {
        QFile::remove(incoming.fileName());
    }
    return written;
}

void LocalRepository::startPut()
{
    if (!source.openRegular(underWay.path, underWay.within) || !openIncoming()) {
        endPut(false);
        return;
    }
    if (!isMissing(entryPath())) {
        logDebug("File '%1' exists: updating", entryPath());
    }
    turn.start();
}

void LocalRepository::startGet()
{
    if (isMissing(entryPath())) {
        logDebug("The repository holds no '%1'", underWay.entry);
        finish(underWayNumber, {RequestOutcome::Absent, {}});
        return;
    }
    // An entry that is a link may not lead out of the directory.
    const QString place = QDir(directory).canonicalPath();
    if (!source.openRegular(place + "/" + underWay.entry, place) ||
        !download.open(underWay.path, underWay.largest)) {
        endGet(false);
        return;
    }
    download.expect(source.size());
    if (QFile::exists(underWay.path)) {
        logDebug("File '%1' exists: updating", underWay.path);
    }
    turn.start();
}

void LocalRepository::copyPortion()
{
    const bool puts = underWay.method == RepositoryRequest::Put;
    const QByteArray bytes = source.read(portion);
    const bool written = puts ? writeWhole(incoming, bytes) : download.append(bytes);
    const bool healthy = written && source.error() == QFile::NoError;
    if (healthy && !bytes.isEmpty()) {
        noteProgress();
        return;
    }
    if (puts) {
        endPut(healthy);
    } else {
        endGet(healthy);
    }
}

void LocalRepository::endPut(bool copied)
{
    const QString place = QDir(directory).path();
    const QString failed = QString("Saving file '%1' (%2) into '%3' failed")
                               .arg(ItemNames::lastComponent(underWay.path), underWay.path, place);
    if (isWritten(copied)) {
        const QByteArray name = QFile::encodeName(ItemNames::lastComponent(incoming.fileName()));
        parkedBytes += source.size();
        const RequestOutcome stored = {RequestOutcome::Stored, {}, false, source.digest()};
        abort();
        parkChange(name, stored, failed);
        return;
    }
    RequestOutcome outcome = failure(failed);
    outcome.cause = incoming.error() == QFile::ResourceError ? RequestOutcome::NoRoom : RequestOutcome::Other;
    abort();
    if (hasParked()) {
        // What is parked may make room when it takes the places of the old entries.
        retryAfterParked();
    } else {
        logError("%1", failed);
        finish(underWayNumber, outcome);
    }
}

void LocalRepository::endGet(bool copied)
{
    const bool fetched = copied && download.finish(source.permissions());
    abort();
    if (fetched) {
        logDebug("File '%1' copied into '%2'", underWay.entry, underWay.path);
        finish(underWayNumber, {});
        return;
    }
    if (download.isTooLarge()) {
        finish(underWayNumber, loggedFailure(tooLarge(underWay.entry, download.limit())));
        return;
    }
    finish(underWayNumber,
           loggedFailure(QString("Copying file '%1' (%2) into '%3' failed")
                             .arg(underWay.entry, getRepositoryUrl() + "/" + underWay.entry, underWay.path)));
}

void LocalRepository::remove()
{
    if (isMissing(entryPath())) {
        finish(underWayNumber, {});
        return;
    }
    logDebug("Removing file '%1'", entryPath());
    parkChange({}, {}, QString("Removing file '%1' failed").arg(entryPath()));
}

void LocalRepository::parkChange(const QByteArray &written, const RequestOutcome &success,
                                 const QString &failureText)
{
    parkedChanges << Change{{written, QFile::encodeName(underWay.entry)}, success, failureText};
    park();
}

bool LocalRepository::isFull() const
{
    return parkedBytes >= mostParkedBytes || parkedChanges.size() >= mostParked;
}

void LocalRepository::carryOutParked()
{
    QList<EntryChange> changes;
    for (const Change &change : std::as_const(parkedChanges)) {
        changes << change.change;
    }
    const auto done = [this](const QList<EntryChanges::Result> &results) {
        QList<RequestOutcome> outcomes;
        for (qsizetype number = 0; number < results.size(); ++number) {
            outcomes << outcomeOf(number, results.at(number));
        }
        forgetParked();
        finishParked(outcomes);
    };
    waited = {};
    patience.start();
    underWayTogether = std::make_unique<EntryChanges>(directory, changes, this, done);
}

RequestOutcome LocalRepository::outcomeOf(qsizetype number, EntryChanges::Result result) const
{
    const Change &change = parkedChanges.at(number);
    if (result == EntryChanges::Result::Done) {
        if (!change.change.written.isEmpty()) {
            logDebug("File '%1' saved into '%2'", QFile::decodeName(change.change.entry),
                     QDir(directory).path());
        }
        return change.success;
    }
    RequestOutcome outcome = loggedFailure(change.failureText);
    outcome.entryUntouched = result == EntryChanges::Result::Untouched;
    return outcome;
}

QList<RequestOutcome> LocalRepository::abortParked(const QString &why)
{
    const QList<EntryChanges::Result> results =
        underWayTogether ? underWayTogether->giveUp()
                         : QList<EntryChanges::Result>(parkedChanges.size(), EntryChanges::Result::Untouched);
    QList<RequestOutcome> outcomes;
    for (qsizetype number = 0; number < results.size(); ++number) {
        const Change &change = parkedChanges.at(number);
        if (!underWayTogether && !change.change.written.isEmpty()) {
            QFile::remove(QDir(directory).filePath(QFile::decodeName(change.change.written)));
        }
        outcomes << (results.at(number) == EntryChanges::Result::Done
                         ? change.success
                         : RequestOutcome{RequestOutcome::Failed, why,
                                          results.at(number) == EntryChanges::Result::Untouched});
    }
    forgetParked();
    return outcomes;
}

void LocalRepository::forgetParked()
{
    patience.stop();
    underWayTogether.reset();
    parkedChanges.clear();
    parkedBytes = 0;
}
