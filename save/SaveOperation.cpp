#include "save/SaveOperation.h"

#include "catalogue/ItemNames.h"
#include "catalogue/SavedVersion.h"
#include "outcome/OperationReport.h"
#include "pause/PauseKeeper.h"
#include "platform/core/Waiter.h"
#include "platform/DevicePaths.h"
#include "platform/logger/LogFields.h"
#include "platform/logger/VYXLogger.h"
#include "platform/WholeFile.h"
#include "repository/RepositorySession.h"
#include "restorable/KnownModules.h"
#include "save/Upload.h"
#include "staging/WorkingDirectory.h"

#include <QElapsedTimer>
#include <QFile>
#include <QSet>

#include <algorithm>

using Outcome::Code;
using Phase = OperationReport::Phase;
using Step = OperationReport::Step;

SaveOperation::SaveOperation(const OperationContext &context)
    : context(context), staging(context.modules, context.waiter)
{
    if (context.repository) {
        session = std::make_unique<RepositorySession>(context.repository, context.waiter);
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
    logDebug("Start saving operations");
    if (!prepare()) {
        return false;
    }
    context.report.enter(Phase::Reading);
    const SavedState previous = SavedState::fetch(*session, context.modules, renewedModules());
    if (previous.isNewer) {
        context.refuseFormat("backup");
        return false;
    }
    if (context.isBrokenOff("backup") || !stage(previous) || context.isBrokenOff("backup")) {
        return false;
    }
    logDebug("Send data to repository");
    postOnRepository(previous);
    if (context.isBrokenOff("backup")) {
        return false;
    }
    logDebug("Saving operations done (in %1ms)", timer.elapsed());
    return true;
}

bool SaveOperation::isPossible()
{
    if (!context.enabled) {
        logWarning("Save/Restore is disabled: abort backup operations.");
        context.showFailure("Save/Restore is disabled: abort.");
        context.report.end(Code::Disabled);
        return false;
    }
    if (!session) {
        logWarning("Repository URL not provided!");
        context.showFailure("Repository URL not provided!");
        context.report.end(Code::NoRepository);
        return false;
    }
    const bool usable = context.isUsable(*session, "backup");
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
        context.reportFailure("The modules to save are not known: abort backup operations.");
        context.report.end(Code::ModulesUnknown);
        return false;
    }
    context.modules.completeSaveGroups();
    if (!context.knowsModules()) {
        return false;
    }
    widenToGroups();
    const bool cleaned =
        WorkingDirectory::cleanRestoreDirectory(context.waiter) && staging.cleanSaveDirectory();
    if (!cleaned || !stageVersionFiles()) {
        context.reportFailure("Data could not be staged: abort backup operations.");
        context.report.end(Code::StagingFull);
        return false;
    }
    return true;
}

/// Those that are staged as a whole.
QSet<QString> SaveOperation::renewedModules() const
{
    QSet<QString> names;
    if (!repairs || context.priorities != Priorities()) {
        return names;
    }
    for (const RestorableObject &object : context.modules.objects()) {
        if (context.options.concerns(object.getName())) {
            names << object.getName();
        }
    }
    return names;
}

/// Data of modules that are paused together belong together.
void SaveOperation::widenToGroups()
{
    if (!context.options.modules.isEmpty()) {
        context.options.modules = context.groupedModules();
    }
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
bool SaveOperation::stage(const SavedState &previous)
{
    damaged.removeIf([&](const ItemIdentity &item) { return !isConcerned(item, previous); });
    if (!context.options.dryRun) {
        staging.makeArtefacts(withoutDigests(previous.lines, damaged));
    }
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

/// True for an item that the repository has, of a module and a priority that are saved this time.
bool SaveOperation::isConcerned(const ItemIdentity &item, const SavedState &previous) const
{
    const auto &[module, identity] = item;
    const ChecksumLines lines = previous.lines.value(module);
    const auto line = std::ranges::find(lines, identity, &ChecksumLine::identity);
    return line != lines.end() && context.options.concerns(module) &&
           context.modules.findObject(module) != nullptr &&
           context.priorities.names().contains(line->priority());
}

bool SaveOperation::runPasses(const SavedState &previous)
{
    const Priorities &priorities = context.priorities;
    const QStringList modules = context.groupedModules();
    context.report.enter(Phase::Copying, static_cast<quint64>(staging.sizeOfDatabases(modules)));
    const quint64 fileBytes = staging.measureFiles(
        modules, priorities, [&report = context.report](quint64 bytes) { report.advance(bytes); });
    const auto save = [&](RestorableObject::RestorablePriority priority) {
        return startSaveOnRepositoryForPriority(priority, fileBytes);
    };
    if (priorities.high) {
        logDebug("Start saving High Priority data");
        if (!save(RestorableObject::high) && !context.waiter.mustEnd()) {
            logError("Saving High Priority data failed: aborting save/restore");
            context.report.end(Code::PauseFailed);
            return false;
        }
        logDebug("Saving migration binaries");
        saveMigrationBinaries(previous);
        logDebug("Saving done");
    }
    if (priorities.normal && !context.waiter.mustEnd()) {
        logDebug("Start saving Normal Priority data");
        save(RestorableObject::normal);
    }
    if (priorities.low && !context.waiter.mustEnd()) {
        logDebug("Start saving Low Priority data");
        save(RestorableObject::low);
    }
    return true;
}

bool SaveOperation::startSaveOnRepositoryForPriority(RestorableObject::RestorablePriority priority,
                                                     quint64 fileBytes)
{
    const bool high = priority == RestorableObject::high;
    QSet<QString> done;
    logDebug("saving order size: %1", context.modules.groups().size());
    for (const QStringList &group : context.groups()) {
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
    context.report.enter(Phase::Staging, fileBytes);
    logDebug("Saving files (%1)", priorityName(priority));
    staging.stageFiles(done.values(), priority);
    logDebug("Saving done");
    return true;
}

/// While the next group is paused, the databases of this one are staged.
bool SaveOperation::stageGroupDatabases(const QStringList &group, const QStringList &modules)
{
    OperationReport &report = context.report;
    report.setModules(group);
    staging.makeRoomFor(modules);
    {
        report.note(group, Step::Asked);
        const Pause pause =
            context.pauses.stopModules(context.modules.processesOf(group), true, context.waiter);
        if (!pause.holds()) {
            logDebug("Stopping modules failed: abort save/restore");
            return false;
        }
        report.note(group, Step::Paused);
        logDebug("Stopping modules done");
        logDebug("Presaving databases");
        staging.copyDatabasesIntoTemp(modules);
        report.note(group, Step::Copied);
        logDebug("Presaving done");
        logDebug("Unstopping modules");
    }
    report.note(group, Step::Resumed);
    report.advance(static_cast<quint64>(staging.sizeOfDatabases(modules)));
    logDebug("Unstopping done");
    logDebug("Saving databases");
    staging.stageDatabases(modules);
    return true;
}

void SaveOperation::saveMigrationBinaries(const SavedState &previous)
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
        const LogFields fields({{"VYX_MODULE", module.toUtf8()}});
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

void SaveOperation::postOnRepository(const SavedState &previous)
{
    for (const GroupTimes &group : context.report.groups()) {
        context.report.note(group.modules, Step::Staged);
    }
    Upload upload(*session, context, previous, {staging.lines(), damaged, migrationPrograms});
    if (context.options.dryRun) {
        upload.preview();
    } else {
        upload.postOnRepository();
    }
    const QList<EntryFailure> &failures = upload.failures();
    if (context.waiter.mustEnd()) {
        return;
    }
    if (failures.isEmpty()) {
        repairedItems = context.options.dryRun ? QSet<ItemIdentity>() : damaged;
        return;
    }
    reportFailures(failures, previous.isUsable);
    const QString detail =
        QString("%1 could not be saved, first %2: %3")
            .arg(QString::number(failures.size()), failures.first().what, failures.first().text);
    logError("Error while uploading files: %1", detail);
    context.showFailure("Error while uploading files.", detail);
}

void SaveOperation::reportFailures(const QList<EntryFailure> &failures, bool usable) const
{
    for (const EntryFailure &failure : failures) {
        context.report.noteFailed({failure.module, failure.item, failure.text});
    }
    const auto endFor = [&](RequestOutcome::Cause cause, Code code) {
        const auto found = std::ranges::find(failures, cause, &EntryFailure::cause);
        if (found != failures.end()) {
            context.report.end(code, found->text);
        }
    };
    endFor(RequestOutcome::NoAnswer, Code::Unreachable);
    endFor(RequestOutcome::NoRoom, Code::RepositoryFull);
    if (!usable) {
        context.report.end(Code::Failed, failures.first().text);
    }
}
