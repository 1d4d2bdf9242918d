#include "restore/RestoreOperation.h"

#include "catalogue/ItemNames.h"
#include "outcome/OperationReport.h"
#include "pause/PauseKeeper.h"
#include "platform/core/Middleware.h"
#include "platform/core/Waiter.h"
#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"
#include "repository/RepositorySession.h"
#include "restorable/KnownModules.h"
#include "restore/FetchAhead.h"
#include "restore/ItemRestorer.h"
#include "restore/LiveData.h"
#include "restore/RestoreNote.h"
#include "staging/WorkingDirectory.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>

namespace {

/// Databases that are prepared at once, and the compressed bytes of their dumps, before no more are added.
constexpr qsizetype mostPrepared = 8;
constexpr qint64 mostPreparedBytes = qint64{4} * 1024 * 1024;

} // namespace

using Outcome::Code;
using Phase = OperationReport::Phase;
using Step = OperationReport::Step;

RestoreOperation::RestoreOperation(const OperationContext &context)
    : context(context), staging(context.modules, context.waiter)
{
    if (context.repository) {
        session = std::make_unique<RepositorySession>(context.repository, context.waiter);
        fetcher = std::make_unique<FetchAhead>(*session);
        restorer = std::make_unique<ItemRestorer>(*session, context.waiter);
    }
}

RestoreOperation::~RestoreOperation() = default;

void RestoreOperation::startRestoreFromRepository()
{
    logDebug("Start restoring operations");
    if (!isPossible() || !prepare()) {
        return;
    }
    context.report.enter(Phase::Reading);
    RestorePlanner planner(context, *session, staging);
    const bool planned = planner.getFromRepository();
    if (context.isBrokenOff("restore")) {
        return;
    }
    if (context.report.code() == Code::NewerFormat) {
        return;
    }
    if (!planned) {
        logError("Error when downloading data from repository: Aborting restore operations");
        return;
    }
    takePlan(planner);
    if (context.options.dryRun) {
        staging.rememberedDigests().store();
        return;
    }
    beginRestoring();
    fetcher->begin(itemsToFetch());
    runPasses();
    endRestoring();
    staging.rememberedDigests().store();
    startMigrations();
    if (!context.isBrokenOff("restore")) {
        finish();
    }
}

bool RestoreOperation::isPossible()
{
    if (!context.enabled) {
        logDebug("Save/Restore is disabled: abort restore operations.");
        context.showFailure("Save/Restore is disabled: abort restore operations.");
        context.report.end(Code::Disabled);
        return false;
    }
    if (!session) {
        context.reportFailure("Repository URL not provided!");
        context.report.end(Code::NoRepository);
        return false;
    }
    const bool usable = context.isUsable(*session, "restore");
    return !context.isBrokenOff("restore") && usable;
}

bool RestoreOperation::prepare()
{
    const bool modulesKnown =
        context.modules.parseRestorableConfigFiles(context.waiter, MissingData::Expected);
    if (context.isBrokenOff("restore")) {
        return false;
    }
    if (!modulesKnown) {
        context.reportFailure("The modules to restore are not known: abort restore operations.");
        context.report.end(Code::ModulesUnknown);
        return false;
    }
    context.modules.completeSaveGroups();
    if (!context.knowsModules()) {
        return false;
    }
    logDebug("Cleaning restore directory: %1", DevicePaths::restoreDirectory());
    const bool cleaned =
        WorkingDirectory::cleanRestoreDirectory(context.waiter) && staging.cleanSaveDirectory();
    if (!cleaned) {
        context.reportFailure("Data could not be staged: abort restore operations.");
        context.report.end(Code::StagingFull);
    }
    return cleaned;
}

QList<RestorableObject::RestorablePriority> RestoreOperation::priorities() const
{
    QList<RestorableObject::RestorablePriority> wanted;
    if (context.priorities.high) {
        wanted << RestorableObject::high;
    }
    if (context.priorities.normal) {
        wanted << RestorableObject::normal;
    }
    if (context.priorities.low) {
        wanted << RestorableObject::low;
    }
    return wanted;
}

/// In the order in which the passes put them back.
QList<PlannedItem> RestoreOperation::itemsToFetch()
{
    QList<PlannedItem> items;
    QSet<QString> sources; // a module can be in several groups
    const auto add = [&](const PlannedItem &planned) {
        if (!sources.contains(planned.source)) {
            sources << planned.source;
            items << planned;
        }
    };
    for (const auto priority : priorities()) {
        for (const QStringList &group : context.groups()) {
            forEachItem(group, priorityName(priority), DatabaseItem, add);
            forEachItem(group, priorityName(priority), DirectoryItem, add);
        }
    }
    return items;
}

void RestoreOperation::runPasses()
{
    for (const auto priority : priorities()) {
        logDebug("Start restoring %1 Priority data", priorityName(priority));
        startRestoreFromRepositoryForPriority(priority);
    }
}

void RestoreOperation::startRestoreFromRepositoryForPriority(RestorableObject::RestorablePriority priority)
{
    QSet<QString> done;
    const QList<QStringList> groups = context.groups();
    for (qsizetype number = 0; number < groups.size(); ++number) {
        if (context.waiter.mustEnd()) {
            return;
        }
        const QStringList &group = groups.at(number);
        if (priority == RestorableObject::high) {
            prepareDatabases(number, done);
        }
        logDebug("Starting restore for module(s) %1", group.join(' '));
        QStringList modules = group;
        modules.removeIf([&](const QString &module) { return done.contains(module); });
        done += QSet<QString>(modules.cbegin(), modules.cend());
        restoreGroup(group, modules, priority);
    }
}

/// Before the group's turn, together with those of the next groups, as far as they are small: then they are
/// loaded side by side. One that fails ahead, for want of room say, is tried again in its turn.
void RestoreOperation::prepareDatabases(qsizetype group, const QSet<QString> &done)
{
    const QList<QStringList> groups = context.groups();
    QList<PlannedItem> own;
    QList<PlannedItem> ahead;
    qint64 size = 0;
    const auto add = [&](QList<PlannedItem> &list, const PlannedItem &planned) {
        const QString path = planned.item.livePath();
        // `restore` tells of one that is not its module's.
        if (LiveData::belongsToModule(path, planned.item.getModule())) {
            list << planned;
            triedAhead << path;
        }
    };
    const auto forEachDatabase = [&](qsizetype number, const std::function<void(const PlannedItem &)> &step) {
        QStringList modules = groups.at(number);
        modules.removeIf([&](const QString &module) { return done.contains(module); });
        forEachItem(modules, priorityName(RestorableObject::high), DatabaseItem, step);
    };
    forEachDatabase(group, [&](const PlannedItem &planned) {
        restorer->isPrepared(planned) ? void() : add(own, planned);
    });
    fetcher->require(own);
    for (const PlannedItem &planned : std::as_const(own)) {
        size += QFileInfo(planned.source).size();
    }
    for (qsizetype next = group + 1; !own.isEmpty() && next < groups.size(); ++next) {
        forEachDatabase(next, [&](const PlannedItem &planned) {
            const bool room = own.size() + ahead.size() < mostPrepared && size < mostPreparedBytes;
            if (room && fetcher->isFetched(planned) && !triedAhead.contains(planned.item.livePath())) {
                add(ahead, planned);
                size += QFileInfo(planned.source).size();
            }
        });
    }
    restorer->prepareDatabases(own, ahead);
}

void RestoreOperation::restoreGroup(const QStringList &group, const QStringList &modules,
                                    RestorableObject::RestorablePriority priority)
{
    const QString name = priorityName(priority);
    context.report.setModules(group);
    if (priority == RestorableObject::high) {
        restoreDatabases(group, modules);
        context.report.note(group, Step::Resumed);
    }
    forEachItem(modules, name, DatabaseItem,
                [this](const PlannedItem &planned) { fetcher->release(planned); });
    restoreItems(modules, name, DirectoryItem);
    restoreItems(modules, name, FileItem);
}

/// The group is paused until this returns.
void RestoreOperation::restoreDatabases(const QStringList &group, const QStringList &modules)
{
    context.report.note(group, Step::Asked);
    const Pause pause = context.pauses.stopModules(context.modules.processesOf(group), false, context.waiter);
    if (pause.holds()) {
        context.report.note(group, Step::Paused);
    } else if (!context.waiter.mustEnd()) {
        logWarning("The data of module(s) %1 are restored while they run", group.join(' '));
    }
    restoreItems(modules, priorityName(RestorableObject::high), DatabaseItem);
    if (pause.holds()) {
        restorer->rememberDatabases(staging);
    }
    context.report.note(group, Step::Copied);
}

void RestoreOperation::forEachItem(const QStringList &modules, const QString &priorityName,
                                   RestorableItemKind kind,
                                   const std::function<void(const PlannedItem &)> &step)
{
    for (const QString &module : modules) {
        for (const PlannedItem &planned : plan.value(module).items) {
            if (planned.item.getKind() == kind && planned.item.getPriority() == priorityName &&
                !context.waiter.mustEnd()) {
                step(planned);
            }
        }
    }
}

void RestoreOperation::restoreItems(const QStringList &modules, const QString &priorityName,
                                    RestorableItemKind kind)
{
    const auto told = [this](const PlannedItem &planned, const std::optional<QString> &why) {
        reportDone(planned, why);
    };
    QList<PlannedItem> files;
    forEachItem(modules, priorityName, kind, [&](const PlannedItem &planned) {
        if (kind == FileItem) {
            files << planned;
            return;
        }
        if (kind == DirectoryItem) {
            fetcher->require({planned});
        }
        const bool restored = restorer->restore(planned);
        reportDone(planned, restored ? std::nullopt : std::optional(restorer->fault(planned)));
        if (kind == DirectoryItem) {
            fetcher->release(planned);
        }
    });
    restorer->restoreFiles(files, told);
}

void RestoreOperation::finish()
{
    if (failedItems > 0 && session->lacksAnswers()) {
        context.report.end(Code::Unreachable);
    }
    if (!fetcher->failure().isEmpty()) {
        context.showFailure("Error while downloading files.", fetcher->failure());
    }
    if (failedItems > 0) {
        context.showFailure(
            "Error while restoring data.",
            QString("%1 items could not be restored and stay as they were.").arg(failedItems));
    }
    QString groups;
    for (const QStringList &group : context.groups()) {
        groups += group.join(':') + ":";
    }
    logDebug("Restore finished (%1)", groups);
    VYXEvent event("restore_finished");
    event.addArgument(groups, "modules", true);
    context.middleware.notifyEvent(event);
}
