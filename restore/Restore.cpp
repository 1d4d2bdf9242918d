#include "catalogue/ItemNames.h"
#include "catalogue/SavedVersion.h"
#include "platform/core/VYXApplication.h"
#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"
#include "restore/DownloadList.h"
#include "restore/LiveData.h"
#include "service/OperationGuard.h"
#include "service/VYXSaveRestore.h"

#include <QFile>
#include <QScopeGuard>
#include <QSet>

void VYXSaveRestore::startRestoreFromRepository()
{
    const OperationGuard guard(operationRunning);
    if (refuseSecondOperation(guard.acquired())) {
        return;
    }
    logDebug("Start restoring operations");
    setCapability(Capability("SAVE_RESTORE_ENABLE", Capability::TEMPORARY_UNAVAILABLE));
    const auto publish = qScopeGuard([this] { checkCapability(); });
    const bool modulesKnown = knownModules.parseRestorableConfigFiles(waiter);
    if (!restoreIsPossible()) {
        return;
    }
    if (!modulesKnown) {
        reportFailure("The modules to restore are not known: abort restore operations.");
        return;
    }
    knownModules.completeSaveGroups();
    operationGeneration = repositoryGeneration;
    priorities = settings.priorities;
    failedItems = 0;
    cleanRestoreDirectory();
    cleanSaveDirectory();
    if (!getFromRepository() && !VYXApplication::isEnding()) {
        logError("Error when downloading data from repository: Aborting restore operations");
        return;
    }
    runRestorePasses();
    if (isRestoreBrokenOff()) {
        return;
    }
    if (failedItems > 0) {
        showFailure("Error while restoring data.",
                    QString("%1 items could not be restored and stay as they were.").arg(failedItems));
    }
    QString groups;
    for (const QStringList &group : knownModules.groups()) {
        groups += group.join(':') + ":";
    }
    logInfo("Restore finished (%1)", groups);
    VYXEvent event("restore_finished");
    event.addArgument(groups, "modules", true);
    notifyEvent(event);
}

bool VYXSaveRestore::restoreIsPossible()
{
    if (!settings.enabled) {
        logDebug("Save/Restore is disabled: abort restore operations.");
        showFailure("Save/Restore is disabled: abort restore operations.");
        return false;
    }
    if (repository == nullptr) {
        reportFailure("Repository URL not provided!");
        return false;
    }
    return repositoryIsUsable("restore");
}

bool VYXSaveRestore::isRestoreBrokenOff()
{
    if (VYXApplication::isEnding()) {
        logWarning("The service is asked to end: abort restore operations.");
        return true;
    }
    if (operationGeneration != repositoryGeneration) {
        reportFailure("The repository was changed: abort restore operations.");
        return true;
    }
    return false;
}

void VYXSaveRestore::runRestorePasses()
{
    if (priorities.high) {
        logDebug("Start restoring High Priority data");
        startRestoreFromRepositoryForPriority(RestorableObject::high);
    }
    if (priorities.normal) {
        logDebug("Start restoring Normal Priority data");
        startRestoreFromRepositoryForPriority(RestorableObject::normal);
    }
    if (priorities.low) {
        logDebug("Start restoring Low Priority data");
        startRestoreFromRepositoryForPriority(RestorableObject::low);
    }
}

void VYXSaveRestore::startRestoreFromRepositoryForPriority(RestorableObject::RestorablePriority priority)
{
    const bool high = priority == RestorableObject::high;
    QList<Migration> migrations;
    if (high && !checkVersions(migrations)) {
        return;
    }
    const SaveGroups groups = knownModules.groups();
    QSet<QString> done;
    for (const QStringList &group : groups) {
        if (VYXApplication::isEnding() || operationGeneration != repositoryGeneration) {
            return;
        }
        logDebug("Starting restore for module(s) %1", group.join(' '));
        QStringList modules = group;
        modules.removeIf([&](const QString &module) { return done.contains(module); });
        done += QSet<QString>(modules.cbegin(), modules.cend());
        restoreGroup(group, readDownloadLists(modules, priorityName(priority)), high);
        if (high) {
            startMigrations(modules, migrations);
        }
    }
}

QList<VYXSaveRestore::PlannedLine> VYXSaveRestore::readDownloadLists(const QStringList &modules,
                                                                     const QString &priorityName)
{
    QList<PlannedLine> lines;
    for (const QString &module : modules) {
        QFile list(DevicePaths::fetched(module + "-downloadlist.txt"));
        if (!list.open(QIODevice::ReadOnly)) {
            logError("Could not open download list for module '%1'", module);
            continue;
        }
        for (QString text = QString::fromUtf8(list.readLine()).trimmed(); !text.isEmpty();
             text = QString::fromUtf8(list.readLine()).trimmed()) {
            if (!text.endsWith(priorityName)) {
                continue;
            }
            if (const auto line = DownloadLine::parse(text)) {
                lines << PlannedLine{module, *line};
            } else {
                logError("Line '%1' of the download list of module '%2' is refused", text, module);
            }
        }
    }
    return lines;
}

void VYXSaveRestore::restoreGroup(const QStringList &group, const QList<PlannedLine> &lines, bool high)
{
    const auto forEach = [&](DownloadLine::Kind kind, bool (VYXSaveRestore::*restore)(const PlannedLine &)) {
        for (const PlannedLine &line : lines) {
            if (line.line.kind == kind && !VYXApplication::isEnding() &&
                operationGeneration == repositoryGeneration) {
                failedItems += (this->*restore)(line) ? 0 : 1;
            }
        }
    };
    if (high) {
        const Pause pause = pauses.stopModules(knownModules.processesOf(group), false, waiter);
        if (!pause.holds() && !VYXApplication::isEnding()) {
            logWarning("The data of module(s) %1 are restored while they run", group.join(' '));
        }
        forEach(DownloadLine::Database, &VYXSaveRestore::restoreDatabase);
    }
    forEach(DownloadLine::Directory, &VYXSaveRestore::restoreDirectory);
    forEach(DownloadLine::File, &VYXSaveRestore::restoreFile);
}

bool VYXSaveRestore::checkVersions(QList<Migration> &migrations)
{
    for (const RestorableObject &object : knownModules.objects()) {
        const QString module = object.getName();
        QFile file(DevicePaths::fetched(ItemNames::versionFileName(module)));
        if (!file.open(QIODevice::ReadOnly)) {
            logError("Could not open module '%1' version file", module);
            showFailure("Error while restoring data.",
                        QString("Module '%1' has no saved version: no data of high priority are restored.")
                            .arg(module));
            return false;
        }
        const SavedVersion saved = SavedVersion::parse(QString::fromUtf8(file.readLine()).trimmed());
        if (const auto migration = neededMigration(module, saved, object.getRelease(), object.getVersion())) {
            migrations << *migration;
            logDebug("Add module to migration list: %1", migration->text());
        }
    }
    return true;
}

void VYXSaveRestore::startMigrations(const QStringList &modules, const QList<Migration> &migrations)
{
    for (const Migration &migration : migrations) {
        if (!modules.contains(migration.module) || VYXApplication::isEnding()) {
            continue;
        }
        logDebug("Start migration process for module '%1' : '%2' -> '%3'", migration.module,
                 migration.saved.release, migration.release);
        const QString program = migration.module + "Migration";
        const QString path = DevicePaths::fetched(program);
        if (!getFileAndWait(program, path, true)) {
            logError("Could not fetch '%1' from the repository", program);
        }
        asyncRemoteCall("ApplicationManager", "migratForRestore",
                        {migration.module, migration.saved.release, migration.saved.release});
        QFile::remove(path);
    }
}
