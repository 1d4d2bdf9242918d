#include "catalogue/ItemNames.h"
#include "repository/LocalRepository.h"

#include <QDir>
#include <QFile>

#include <sys/stat.h>
#include <utility>

// Where the directory is, and how it tells which entries it has.

namespace {

constexpr int entriesAtOnce = 500;

} // namespace

QString LocalRepository::getRepositoryUrl() const
{
    return QFileInfo(directory).isDir() ? QDir(directory).absolutePath() : directory;
}

bool LocalRepository::isInitialised() const
{
    return QFileInfo(directory).isDir() && QDir(directory).canonicalPath() != QDir::current().canonicalPath();
}

RequestOutcome LocalRepository::look() const
{
    struct stat status = {};
    if (lstat(QFile::encodeName(entryPath()).constData(), &status) != 0) {
        return {RequestOutcome::Absent, {}};
    }
    if (!S_ISREG(status.st_mode)) {
        return {RequestOutcome::Failed, QString("'%1' is no file").arg(entryPath()), true};
    }
    return {.size = status.st_size};
}

void LocalRepository::advance()
{
    if (underWay.method == RepositoryRequest::List) {
        listPortion();
    } else {
        copyPortion();
    }
}

void LocalRepository::listPortion()
{
    if (!listing) {
        listing =
            std::make_unique<QDirIterator>(QDir(directory).path(), QDir::Files | QDir::Hidden | QDir::System);
        listed = {};
    }
    for (int left = entriesAtOnce; left > 0 && listing->hasNext(); --left) {
        const QFileInfo entry = listing->nextFileInfo();
        if (ItemNames::canBeEntry(entry.fileName())) {
            listed.entries.insert(entry.fileName(), entry.size());
        }
    }
    const bool tooMany = listed.entries.size() > mostListed;
    if (tooMany) {
        listed = {RequestOutcome::Failed, QString("The repository has more than %1 entries").arg(mostListed),
                  true};
    }
    if (tooMany || !listing->hasNext()) {
        abort();
        finish(underWayNumber, std::exchange(listed, {}));
        return;
    }
    noteProgress();
}
