#include "staging/WorkingDirectory.h"

#include "platform/core/Waiter.h"
#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"

#include <QDir>
#include <QFile>

namespace {

void createWorkingDirectory(const QString &path, const char *warning)
{
    if (QDir(path).exists()) {
        return;
    }
    logWarning(warning, path);
    QDir().mkpath(path);
    QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

} // namespace

namespace WorkingDirectory {

void createAll()
{
    createWorkingDirectory(DevicePaths::stagingRoot(), "Save temp directory '%1' does not exist, creating.");
    createWorkingDirectory(DevicePaths::restoreDirectory(),
                           "Restore temp directory '%1' does not exist, creating.");
}

bool clean(const QString &path, Waiter &waiter)
{
    createAll();
    bool cleaned = false;
    waiter.runBeside([&] {
        const QDir directory(path);
        cleaned = directory.exists();
        for (const QFileInfo &entry :
             directory.entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot)) {
            const bool tree = entry.isDir() && !entry.isSymLink();
            const bool removed =
                tree ? QDir(entry.filePath()).removeRecursively() : QFile::remove(entry.filePath());
            cleaned = cleaned && removed;
        }
    });
    return cleaned;
}

} // namespace WorkingDirectory
