#include "repository/LocalRepository.h"

#include "catalogue/ItemNames.h"
#include "platform/logger/VYXLogger.h"
#include "repository/RepositoryUrl.h"

#include <QDir>
#include <QFileInfo>

#include <cerrno>
#include <cstdio>
#include <sys/stat.h>

namespace {

constexpr qint64 portion = qint64{1024} * 1024;
const QString incomingName = ItemNames::ownPrefix() + "incoming";

/// True when there is nothing of that name, or can be nothing.
bool isMissing(const QString &path)
{
    struct stat status = {};
    return lstat(QFile::encodeName(path).constData(), &status) != 0 &&
           (errno == ENOENT || errno == ENAMETOOLONG);
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
    connect(&turn, &QTimer::timeout, this, &LocalRepository::copyPortion);
}

LocalRepository::~LocalRepository()
{
    cancelRequests(noLongerInUse());
}

QString LocalRepository::getRepositoryUrl() const
{
    return QFileInfo(directory).isDir() ? QDir(directory).absolutePath() : directory;
}

bool LocalRepository::isInitialised() const
{
    return QFileInfo(directory).isDir() && QDir(directory).canonicalPath() != QDir::current().canonicalPath();
}

QString LocalRepository::entryPath() const
{
    return QString("%1/%2").arg(QDir(directory).path(), underWay.entry);
}

QString LocalRepository::incomingPath() const
{
    return QString("%1/%2").arg(QDir(directory).path(), incomingName);
}

void LocalRepository::start(const RepositoryRequest &request)
{
    underWay = request;
    if (!isInitialised()) {
        const QString text = "Local save directory not initialized!";
        finish(request.method == RepositoryRequest::Check ? failure(text) : loggedFailure(text));
        return;
    }
    if (request.entry == incomingName) {
        finish(loggedFailure(QString("'%1' names no file of the repository").arg(request.entry)));
        return;
    }
    switch (request.method) {
    case RepositoryRequest::Check:
        finish({});
        return;
    case RepositoryRequest::Put:
        startPut();
        return;
    case RepositoryRequest::Get:
        startGet();
        return;
    case RepositoryRequest::Remove:
        finish(remove());
        return;
    }
}

void LocalRepository::abort()
{
    turn.stop();
    source.close();
    download.drop();
    if (incoming.isOpen()) {
        incoming.close();
        QFile::remove(incoming.fileName());
    }
}

/// What an interrupted process or anybody else has left under that name goes first.
bool LocalRepository::openIncoming()
{
    incoming.setFileName(incomingPath());
    QFile::remove(incoming.fileName());
    return incoming.open(QIODevice::WriteOnly | QIODevice::NewOnly | QIODevice::Unbuffered,
                         QFile::ReadOwner | QFile::WriteOwner);
}

bool LocalRepository::replaceEntry()
{
    incoming.setPermissions(source.permissions());
    incoming.close();
    const QByteArray written = QFile::encodeName(incoming.fileName());
    const QByteArray entry = QFile::encodeName(entryPath());
    const bool replaced = incoming.error() == QFile::NoError && // of the close alone
                          std::rename(written.constData(), entry.constData()) == 0;
    if (!replaced) {
        QFile::remove(incoming.fileName());
    }
    return replaced;
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
        finish({RequestOutcome::Absent, {}});
        return;
    }
    // An entry that is a link may not lead out of the directory.
    const QString place = QDir(directory).canonicalPath();
    if (!source.openRegular(place + "/" + underWay.entry, place) || !download.open(underWay.path)) {
        endGet(false);
        return;
    }
    if (QFile::exists(underWay.path)) {
        logDebug("File '%1' exists: updating", underWay.path);
    }
    turn.start();
}

void LocalRepository::copyPortion()
{
    const bool puts = underWay.method == RepositoryRequest::Put;
    const QByteArray bytes = source.read(portion);
    const bool written = puts ? incoming.write(bytes) == bytes.size() : download.append(bytes);
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
    const QString name = ItemNames::lastComponent(underWay.path);
    const QString place = QDir(directory).path();
    const bool stored = copied && replaceEntry();
    const QString digest = source.digest();
    abort();
    if (stored) {
        logDebug("File '%1' saved into '%2'", name, place);
        finish({RequestOutcome::Stored, {}, false, digest});
        return;
    }
    finish(loggedFailure(QString("Saving file '%1' (%2) into '%3' failed").arg(name, underWay.path, place)));
}

void LocalRepository::endGet(bool copied)
{
    const bool fetched = copied && download.finish(source.permissions());
    abort();
    if (fetched) {
        logDebug("File '%1' copied into '%2'", underWay.entry, underWay.path);
        finish({});
        return;
    }
    finish(loggedFailure(QString("Copying file '%1' (%2) into '%3' failed")
                             .arg(underWay.entry, getRepositoryUrl() + "/" + underWay.entry, underWay.path)));
}

RequestOutcome LocalRepository::remove() const
{
    if (isMissing(entryPath())) {
        return {};
    }
    logDebug("Removing file '%1'", entryPath());
    if (!QFile::remove(entryPath())) {
        return loggedFailure(QString("Removing file '%1' failed").arg(entryPath()));
    }
    return {};
}
