#include "catalogue/ItemNames.h"
#include "commands/Command.h"
#include "commands/ShellText.h"
#include "platform/core/VYXApplication.h"
#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"
#include "service/OperationGuard.h"
#include "service/VYXSaveRestore.h"

#include <QElapsedTimer>
#include <QFile>
#include <QScopeGuard>
#include <QSet>

bool VYXSaveRestore::refuseSecondOperation(bool acquired)
{
    if (acquired) {
        return false;
    }
    const QString text = "Another save, restore or reset is running: abort.";
    logWarning("%1", text);
    showFailure(text);
    return true;
}

bool VYXSaveRestore::startSaveOnRepository()
{
    const OperationGuard guard(operationRunning);
    if (refuseSecondOperation(guard.acquired())) {
        return false;
    }
    setCapability(Capability("SAVE_RESTORE_ENABLE", Capability::TEMPORARY_UNAVAILABLE));
    const auto publish = qScopeGuard([this] { checkCapability(); });
    QElapsedTimer timer;
    timer.start();
    if (!saveIsPossible()) {
        return false;
    }
    const int generation = repositoryGeneration;
    priorities = settings.priorities;
    logInfo("Start saving operations");
    if (!prepareSave() || !runSavePasses()) {
        return false;
    }
    if (stagingFailed || generation != repositoryGeneration) {
        reportFailure(stagingFailed ? "Data could not be staged: abort backup operations."
                                    : "The repository was changed: abort backup operations.");
        return false;
    }
    logDebug("Send data to repository");
    postOnRepository();
    if (VYXApplication::isEnding()) {
        logWarning("The service is asked to end: abort backup operations.");
        return false;
    }
    logInfo("Saving operations done (in %1ms)", timer.elapsed());
    return true;
}

bool VYXSaveRestore::saveIsPossible()
{
    if (!settings.enabled) {
        logWarning("Save/Restore is disabled: abort backup operations.");
        showFailure("Save/Restore is disabled: abort.");
        return false;
    }
    if (repository == nullptr) {
        logWarning("Repository URL not provided!");
        showFailure("Repository URL not provided!");
        return false;
    }
    return repositoryIsUsable("backup");
}

bool VYXSaveRestore::prepareSave()
{
    stagingFailed = false;
    if (!knownModules.parseRestorableConfigFiles(waiter) ||
        (knownModules.objects().isEmpty() && !knownModules.groups().isEmpty())) {
        reportFailure("The modules to save are not known: abort backup operations.");
        return false;
    }
    knownModules.completeSaveGroups();
    cleanRestoreDirectory();
    cleanSaveDirectory();
    stageVersionFiles();
    return true;
}

void VYXSaveRestore::stageVersionFiles()
{
    for (const RestorableObject &object : knownModules.objects()) {
        const QString path = DevicePaths::staged(ItemNames::versionFileName(object.getName()));
        const QString text = object.getRelease() + "::" + object.getVersion();
        if (!runShellLine(waiter, ShellText::printCommand(text) + " > " + ShellText::quoted(path))
                 .succeeded()) {
            stagingFailed = true;
        }
        logDebug("Saving version of module %1: %2::%3", object.getName(), object.getRelease(),
                 object.getVersion());
    }
}

bool VYXSaveRestore::runSavePasses()
{
    if (priorities.high) {
        logDebug("Start saving High Priority data");
        if (!startSaveOnRepositoryForPriority(RestorableObject::high) && !VYXApplication::isEnding()) {
            logError("Saving High Priority data failed: aborting save/restore");
            return false;
        }
    }
    if (priorities.normal && !VYXApplication::isEnding()) {
        logDebug("Start saving Normal Priority data");
        startSaveOnRepositoryForPriority(RestorableObject::normal);
    }
    if (priorities.low && !VYXApplication::isEnding()) {
        logDebug("Start saving Low Priority data");
        startSaveOnRepositoryForPriority(RestorableObject::low);
    }
    if (VYXApplication::isEnding()) {
        logWarning("The service is asked to end: abort backup operations.");
        return false;
    }
    return true;
}

bool VYXSaveRestore::startSaveOnRepositoryForPriority(RestorableObject::RestorablePriority priority)
{
    const SaveGroups groups = knownModules.groups();
    QSet<QString> done;
    logDebug("saving order size: %1", groups.size());
    for (const QStringList &group : groups) {
        logDebug("Starting save for module(s) '%1'", group.join(' '));
        QStringList modules = group;
        modules.removeIf([&](const QString &module) { return done.contains(module); });
        done += QSet<QString>(modules.cbegin(), modules.cend());
        if (priority == RestorableObject::high && !stageGroupDatabases(group, modules)) {
            return false;
        }
        logDebug("Saving files (%1)", priorityName(priority));
        stageFiles(modules, priority);
        logDebug("Saving done");
        if (priority == RestorableObject::high) {
            logDebug("Saving migration binaries");
            saveMigrationBinaries(modules);
            logDebug("Saving done");
        }
    }
    return true;
}

bool VYXSaveRestore::stageGroupDatabases(const QStringList &group, const QStringList &modules)
{
    {
        const Pause pause = pauses.stopModules(knownModules.processesOf(group), true, waiter);
        if (!pause.holds()) {
            logDebug("Stopping modules failed: abort save/restore");
            return false;
        }
        logDebug("Stopping modules done");
        logDebug("Presaving databases");
        copyDatabasesIntoTemp(modules);
        logDebug("Presaving done");
        logDebug("Unstopping modules");
    }
    logDebug("Unstopping done");
    logDebug("Saving databases");
    dumpDatabases(modules);
    logDebug("Saving done");
    return true;
}

void VYXSaveRestore::saveMigrationBinaries(const QStringList &modules)
{
    for (const QString &module : modules) {
        const RestorableObject *object = knownModules.findObject(module);
        const QString release = object != nullptr ? object->getRelease() : QString();
        const QString version = object != nullptr ? object->getVersion() : QString();
        const QString path = DevicePaths::fetched(ItemNames::versionFileName(module));
        getFileAndWait(ItemNames::versionFileName(module), path, true);
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) {
            logError("Could not open module '%1' version file: upload current migration binary", module);
            sendMigrationProgram(module);
            continue;
        }
        const QString line = QString::fromUtf8(file.readLine()).trimmed();
        const qsizetype separator = line.indexOf("::");
        const QString savedRelease = line.left(separator);
        const QString savedVersion = line.mid(separator < 0 ? line.size() : separator + 2);
        if (savedRelease < release || savedVersion < version) {
            logDebug("Migration binary for module '%1' is newer: updating", module);
            sendMigrationProgram(module);
        }
    }
}

void VYXSaveRestore::sendMigrationProgram(const QString &module)
{
    const QString program = DevicePaths::migrationProgram(module);
    if (!QFile::exists(program)) {
        return;
    }
    const int before = uncountedSends;
    ++uncountedSends;
    if (!repository->sendFileToRepository(program, {}) && uncountedSends > before) {
        --uncountedSends; // refused: no completion will follow
    }
}
