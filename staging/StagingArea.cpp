#include "staging/StagingArea.h"

#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"
#include "restorable/KnownModules.h"
#include "staging/DatabaseStaging.h"
#include "staging/FileStaging.h"
#include "staging/WorkingDirectory.h"

#include <QDir>

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
    forEachObject(modules, names, [&](const RestorableObject &object) {
        FileStaging staging(object.getName(), stagedLines[object.getName()], waiter);
        for (const RestorableFile &item : object.getFiles()) {
            if (item.getPriority() == priority) {
                staging.stage(item);
            }
        }
    });
}

void StagingArea::copyDatabasesIntoTemp(const QStringList &names)
{
    forEachObject(modules, names, [&](const RestorableObject &object) {
        DatabaseStaging staging(object.getName(), stagedLines[object.getName()], waiter);
        for (const RestorableDatabase &database : object.getDatabases()) {
            staging.copy(database.getName());
        }
        for (const QString &database : object.getMissingDatabases()) {
            staging.noteMissing(database);
        }
    });
}

void StagingArea::dumpDatabases(const QStringList &names)
{
    forEachObject(modules, names, [&](const RestorableObject &object) {
        DatabaseStaging staging(object.getName(), stagedLines[object.getName()], waiter);
        for (const RestorableDatabase &database : object.getDatabases()) {
            staging.dump(database);
        }
    });
}
