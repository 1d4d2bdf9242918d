#include "commands/Command.h"
#include "commands/ShellText.h"
#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"
#include "service/VYXSaveRestore.h"
#include "staging/DatabaseStaging.h"
#include "staging/FileStaging.h"
#include "staging/Staging.h"

void VYXSaveRestore::cleanSaveDirectory()
{
    createWorkingDirectories();
    const QString command = QString("rm -rf %1/*").arg(ShellText::quoted(DevicePaths::stagingRoot()));
    logDebug("Cleaning save directory");
    runShellLine(waiter, command);
}

void VYXSaveRestore::stageFiles(const QStringList &modules, RestorableObject::RestorablePriority priority)
{
    for (const QString &module : modules) {
        Staging::createModuleDirectory(module);
        ChecksumAppender checksums(Staging::checksumFile(module));
        if (!checksums.isOpen()) {
            logError("Can not open CKSUM (%1) file for module %2", Staging::checksumFile(module), module);
            stagingFailed = true;
            return;
        }
        const RestorableObject *object = knownModules.findObject(module);
        if (object == nullptr) {
            continue;
        }
        FileStaging staging(module, checksums, waiter);
        for (const RestorableFile &item : object->getFiles()) {
            if (item.getPriority() == priority) {
                staging.stage(item);
            }
        }
        stagingFailed = stagingFailed || checksums.hasFailed();
    }
}

void VYXSaveRestore::copyDatabasesIntoTemp(const QStringList &modules)
{
    for (const QString &module : modules) {
        Staging::createModuleDirectory(module);
        ChecksumAppender checksums(Staging::checksumFile(module));
        const RestorableObject *object = knownModules.findObject(module);
        if (object == nullptr) {
            continue;
        }
        DatabaseStaging staging(module, waiter);
        for (const RestorableDatabase &database : object->getDatabases()) {
            staging.copy(database.getName(), checksums);
        }
        for (const QString &database : object->getMissingDatabases()) {
            staging.noteMissing(database, checksums);
        }
        stagingFailed = stagingFailed || checksums.hasFailed();
    }
}

void VYXSaveRestore::dumpDatabases(const QStringList &modules)
{
    for (const QString &module : modules) {
        if (const RestorableObject *object = knownModules.findObject(module)) {
            DatabaseStaging staging(module, waiter);
            for (const RestorableDatabase &database : object->getDatabases()) {
                staging.dump(database);
            }
        }
    }
}
