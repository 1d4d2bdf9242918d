#include "save/SaveOperation.h"

#include "catalogue/ItemNames.h"
#include "catalogue/SavedVersion.h"
#include "pause/PauseKeeper.h"
#include "platform/core/Middleware.h"
#include "platform/core/Waiter.h"
#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"
#include "platform/WholeFile.h"
#include "repository/RepositorySession.h"
#include "restorable/KnownModules.h"
#include "save/Upload.h"
#include "staging/WorkingDirectory.h"

#include <QElapsedTimer>
#include <QFile>
#include <QSet>

SaveOperation::SaveOperation(const OperationContext &context)
    : context(context), staging(context.modules, context.waiter)
{
    if (context.repository) {
        session = std::make_unique<RepositorySession>(context.repository, context.middleware, context.waiter);
    }
}

SaveOperation::~SaveOperation() = default;

bool SaveOperation::startSaveOnRepository()
{
    QElapsedTimer timer;
    timer.start();
    if (!isPossible()) {
        return false;
    }
    logInfo("Start saving operations");
    if (!prepare()) {
        return false;
    }
    const PreviousState previous = PreviousState::fetch(*session, context.modules);
    if (context.isBrokenOff("backup") || !stage(previous) || context.isBrokenOff("backup")) {
        return false;
    }
    logDebug("Send data to repository");
    postOnRepository(previous);
    if (context.isBrokenOff("backup")) {
        return false;
    }
    logInfo("Saving operations done (in %1ms)", timer.elapsed());
    return true;
}

bool SaveOperation::isPossible()
{
    if (!context.enabled) {
        logWarning("Save/Restore is disabled: abort backup operations.");
        context.middleware.showFailure("Save/Restore is disabled: abort.");
        return false;
    }
    if (!session) {
        logWarning("Repository URL not provided!");
        context.middleware.showFailure("Repository URL not provided!");
        return false;
    }
    const bool usable = session->isUsable("backup");
    return !context.isBrokenOff("backup") && usable;
}

bool SaveOperation::prepare()
{
    const bool asked = context.modules.parseRestorableConfigFiles(context.waiter);
    if (context.isBrokenOff("backup")) {
        return false;
    }
    const bool noneLeft = context.modules.objects().isEmpty() && !context.modules.groups().isEmpty();
    if (!asked || noneLeft) {
        context.middleware.reportFailure("The modules to save are not known: abort backup operations.");
        return false;
    }
    context.modules.completeSaveGroups();
    const bool cleaned =
        WorkingDirectory::cleanRestoreDirectory(context.waiter) && staging.cleanSaveDirectory();
    if (!cleaned || !stageVersionFiles()) {
        context.middleware.reportFailure("Data could not be staged: abort backup operations.");
        return false;
    }
    return true;
}

bool SaveOperation::stageVersionFiles() const
{
    for (const RestorableObject &object : context.modules.objects()) {
        const QString path = DevicePaths::staged(ItemNames::versionFileName(object.getName()));
        if (!writeWholeFile(path, object.versionLine())) {
            return false;
        }
        logDebug("Saving version of module %1: %2::%3", object.getName(), object.getRelease(),
                 object.getVersion());
    }
    return true;
}

/// Nothing is staged when nothing may be stored.
bool SaveOperation::stage(const PreviousState &previous)
{
    staging.makeArtefacts(previous.lines);
    if (!previous.isUsable) {
        return true;
    }
    staging.rememberedDigests().begin(context.waiter, context.repository->getRepositoryUrl(),
                                      RememberedDigests::Purpose::Save);
    const bool staged = runPasses(previous);
    staging.finishDatabases();
    staging.rememberedDigests().store();
    return staged;
}

bool SaveOperation::runPasses(const PreviousState &previous)
{
    const Priorities &priorities = context.priorities;
    if (priorities.high) {
        logDebug("Start saving High Priority data");
        if (!startSaveOnRepositoryForPriority(RestorableObject::high) && !context.waiter.mustEnd()) {
            logError("Saving High Priority data failed: aborting save/restore");
            return false;
        }
        logDebug("Saving migration binaries");
        saveMigrationBinaries(previous);
        logDebug("Saving done");
    }
    if (priorities.normal && !context.waiter.mustEnd()) {
        logDebug("Start saving Normal Priority data");
        startSaveOnRepositoryForPriority(RestorableObject::normal);
    }
    if (priorities.low && !context.waiter.mustEnd()) {
        logDebug("Start saving Low Priority data");
        startSaveOnRepositoryForPriority(RestorableObject::low);
    }
    return true;
}

bool SaveOperation::startSaveOnRepositoryForPriority(RestorableObject::RestorablePriority priority)
{
    const bool high = priority == RestorableObject::high;
    QSet<QString> done;
    logDebug("saving order size: %1", context.modules.groups().size());
    for (const QStringList &group : context.modules.groups()) {
        logDebug("Starting save for module(s) '%1'", group.join(' '));
        QStringList modules = group;
        modules.removeIf([&](const QString &module) { return done.contains(module); });
        done += QSet<QString>(modules.cbegin(), modules.cend());
        if (high && !stageGroupDatabases(group, modules)) {
            return false;
        }
    }
    if (high) {
        staging.finishDatabases();
    }
    logDebug("Saving files (%1)", priorityName(priority));
    staging.stageFiles(done.values(), priority);
    logDebug("Saving done");
    return true;
}

/// While the next group is paused, the databases of this one are staged.
bool SaveOperation::stageGroupDatabases(const QStringList &group, const QStringList &modules)
{
    staging.makeRoomFor(modules);
    {
        const Pause pause =
            context.pauses.stopModules(context.modules.processesOf(group), true, context.waiter);
        if (!pause.holds()) {
            logDebug("Stopping modules failed: abort save/restore");
            return false;
        }
        logDebug("Stopping modules done");
        logDebug("Presaving databases");
        staging.copyDatabasesIntoTemp(modules);
        logDebug("Presaving done");
        logDebug("Unstopping modules");
    }
    logDebug("Unstopping done");
    logDebug("Saving databases");
    staging.stageDatabases(modules);
    return true;
}

void SaveOperation::saveMigrationBinaries(const PreviousState &previous)
{
    for (auto version = previous.versions.cbegin(); version != previous.versions.cend(); ++version) {
        const QString &module = version.key();
        if (QFile::exists(DevicePaths::migrationProgram(module)) &&
            isMigrationProgramNewer(module, version.value())) {
            migrationPrograms << module;
        }
    }
}

/// The program is stored with the first save of a module, and again with each of a newer release or version.
bool SaveOperation::isMigrationProgramNewer(const QString &module, const RequestOutcome &fetched)
{
    QFile file(DevicePaths::fetched(ItemNames::versionFileName(module)));
    if (!fetched.stored() || !file.open(QIODevice::ReadOnly)) {
        const char *const text = "Could not open module '%1' version file: upload current migration binary";
        if (fetched.kind == RequestOutcome::Absent) {
            logDebug(text, module);
        } else {
            logError(text, module);
        }
        return true;
    }
    const SavedVersion saved = SavedVersion::parse(QString::fromUtf8(file.readLine()).trimmed());
    const RestorableObject *object = context.modules.findObject(module);
    const QString release = object != nullptr ? object->getRelease() : QString();
    const QString version = object != nullptr ? object->getVersion() : QString();
    if (saved.release < release || saved.version < version) {
        logDebug("Migration binary for module '%1' is newer: updating", module);
        return true;
    }
    return false;
}

void SaveOperation::postOnRepository(const PreviousState &previous)
{
    Upload upload(*session, context.modules, context.waiter, previous,
                  {staging.lines(), context.priorities, migrationPrograms});
    upload.postOnRepository();
    const QList<UploadFailure> &failures = upload.failures();
    if (failures.isEmpty() || context.waiter.mustEnd()) {
        return;
    }
    const QString detail =
        QString("%1 could not be saved, first %2: %3")
            .arg(QString::number(failures.size()), failures.first().what, failures.first().text);
    logError("Error while uploading files: %1", detail);
    context.middleware.showFailure("Error while uploading files.", detail);
}
