#include "staging/StagingArea.h"

#include "platform/core/Waiter.h"
#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"
#include "restorable/KnownModules.h"
#include "staging/FileStaging.h"
#include "staging/WorkingDirectory.h"

#include <QDir>

#include <functional>

namespace {

/// The description of each module that has one, with the directory for its artefacts made.
template <typename Stage>
void forEachObject(const KnownModules &modules, const QStringList &names, const Stage &stage)
{
    for (const QString &name : names) {
        if (const RestorableObject *object = modules.findObject(name)) {
            QDir().mkpath(DevicePaths::staged(name));
            stage(*object);
        }
    }
}

} // namespace

bool StagingArea::cleanSaveDirectory()
{
    logDebug("Cleaning save directory");
    return WorkingDirectory::cleanStagingRoot(waiter);
}

void StagingArea::stageFiles(const QStringList &names, RestorableOrder::RestorablePriority priority)
{
    QMap<QString, ChecksumLines> made;
    QList<std::function<void()>> works;
    forEachObject(modules, names, [&](const RestorableObject &object) {
        ChecksumLines &lines = made[object.getName()];
        works << [&, files = object.getFiles(), name = object.getName()] {
            FileStaging staging(name, artefacts, remembered, lines, waiter);
            for (const RestorableFile &item : files) {
                if (item.getPriority() == priority && !waiter.mustEnd()) {
                    staging.stage(item);
                }
            }
        };
    });
    waiter.runAllBeside(works);
    for (auto lines = made.cbegin(); lines != made.cend(); ++lines) {
        stagedLines[lines.key()] += lines.value();
    }
}

void StagingArea::copyDatabasesIntoTemp(const QStringList &names)
{
    forEachObject(modules, names, [&](const RestorableObject &object) {
        const QString name = object.getName();
        DatabaseStaging &staging =
            copied.try_emplace(name, name, artefacts, remembered, waiter).first->second;
        for (const RestorableDatabase &database : object.getDatabases()) {
            staging.copy(database.getName());
        }
    });
}

void StagingArea::stageDatabases(const QStringList &names)
{
    forEachObject(modules, names, [&](const RestorableObject &object) {
        const auto staging = copied.find(object.getName());
        if (staging == copied.end()) {
            return;
        }
        ChecksumLines lines;
        for (const RestorableDatabase &database : object.getDatabases()) {
            lines << staging->second.stageCopy(database);
        }
        for (const QString &database : object.getMissingDatabases()) {
            lines << staging->second.missingLine(database);
        }
        stagedLines[object.getName()] += lines;
        copied.erase(staging);
    });
}

bool StagingArea::rememberRestored(const SavedItem &database, const QString &digest)
{
    return DatabaseStaging(database.getModule(), artefacts, remembered, waiter)
        .rememberRestored(database.getPath(), digest);
}
