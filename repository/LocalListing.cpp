#include "catalogue/ItemNames.h"
#include "repository/LocalRepository.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>

#include <sys/stat.h>

// How a directory tells which entries it has.

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

RequestOutcome LocalRepository::list() const
{
    RequestOutcome outcome;
    QDirIterator place(QDir(directory).path(), QDir::Files | QDir::Hidden | QDir::System);
    while (place.hasNext()) {
        const QFileInfo entry = place.nextFileInfo();
        if (outcome.entries.size() == mostListed) {
            return {RequestOutcome::Failed,
                    QString("The repository has more than %1 entries").arg(mostListed), true};
        }
        if (ItemNames::canBeEntry(entry.fileName())) {
            outcome.entries.insert(entry.fileName(), entry.size());
        }
    }
    return outcome;
}
