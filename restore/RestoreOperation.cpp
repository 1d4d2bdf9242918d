#include "restore/RestoreOperation.h"

#include "catalogue/ItemNames.h"
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
#include "staging/WorkingDirectory.h"

#include <QFile>
#include <QFileInfo>

namespace {

/// The most bytes of a migration program.
constexpr qint64 largestProgram = qint64{256} * 1024 * 1024;

/// Databases that are prepared at once, and the compressed bytes of their dumps, before no more are added.
constexpr qsizetype mostPrepared = 8;
constexpr qint64 mostPreparedBytes = qint64{4} * 1024 * 1024;

} // namespace

RestoreOperation::RestoreOperation(const OperationContext &context)
    : context(context), staging(context.modules, context.waiter)
{
    if (context.repository) {
        session = std::make_unique<RepositorySession>(context.repository, context.middleware, context.waiter);
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
    RestorePlanner planner(context, *session, staging);
    const bool planned = planner.getFromRepository();
    if (context.isBrokenOff("restore")) {
        return;
    }
    if (!planned) {
        logError("Error when downloading data from repository: Aborting restore operations");
        return;
    }
    plan = planner.plan();
    fetcher->begin(itemsToFetch());
    runPasses();
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
        context.middleware.showFailure("Save/Restore is disabled: abort restore operations.");
        return false;
    }
    if (!session) {
        context.middleware.reportFailure("Repository URL not provided!");
        return false;
    }
    const bool usable = session->isUsable("restore");
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
        context.middleware.reportFailure("The modules to restore are not known: abort restore operations.");
        return false;
    }
    context.modules.completeSaveGroups();
    logDebug("Cleaning restore directory: %1", DevicePaths::restoreDirectory());
    const bool cleaned =
        WorkingDirectory::cleanRestoreDirectory(context.waiter) && staging.cleanSaveDirectory();
    if (!cleaned) {
        context.middleware.reportFailure("Data could not be staged: abort restore operations.");
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
        for (const QStringList &group : context.modules.groups()) {
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
    const QList<QStringList> groups = context.modules.groups();
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
    const QList<QStringList> groups = context.modules.groups();
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
    if (priority == RestorableObject::high) {
        const Pause pause =
            context.pauses.stopModules(context.modules.processesOf(group), false, context.waiter);
        if (!pause.holds() && !context.waiter.mustEnd()) {
            logWarning("The data of module(s) %1 are restored while they run", group.join(' '));
        }
        restoreItems(modules, name, DatabaseItem);
        if (pause.holds()) {
            restorer->rememberDatabases(staging);
        }
    }
    forEachItem(modules, name, DatabaseItem,
                [this](const PlannedItem &planned) { fetcher->release(planned); });
    restoreItems(modules, name, DirectoryItem);
    restoreItems(modules, name, FileItem);
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
    const auto note = [this](const PlannedItem &planned) {
        ++failedItems;
        failedModules << planned.item.getModule();
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
        if (!restorer->restore(planned)) {
            note(planned);
        }
        if (kind == DirectoryItem) {
            fetcher->release(planned);
        }
    });
    restorer->restoreFiles(files, note);
}

/// The modules whose saved data are of another release or version than the installed module.
QList<Migration> RestoreOperation::checkVersions() const
{
    QList<Migration> migrations;
    for (const RestorableObject &object : context.modules.objects()) {
        const auto module = plan.constFind(object.getName());
        if (module == plan.cend()) {
            continue;
        }
        const auto migration =
            neededMigration(object.getName(), module->version, object.getRelease(), object.getVersion());
        if (migration) {
            logDebug("Add module to migration list: %1", migration->text());
            migrations << *migration;
        }
    }
    return migrations;
}

/// A module is migrated when all its data were put back: a program must not meet data of two releases.
void RestoreOperation::startMigrations()
{
    if (!context.priorities.high) {
        return;
    }
    for (const Migration &migration : checkVersions()) {
        if (context.waiter.mustEnd()) {
            return;
        }
        if (failedModules.contains(migration.module) || !plan[migration.module].complete) {
            logWarning("Module '%1' is not migrated: not all of its data were restored", migration.module);
            continue;
        }
        logDebug("Start migration process for module '%1' : '%2' -> '%3'", migration.module,
                 migration.saved.release, migration.release);
        const QString program = ItemNames::migrationProgramName(migration.module);
        const QString path = DevicePaths::fetched(program);
        if (session->getFileAndWait(program, path, largestProgram).kind == RequestOutcome::Failed) {
            logError("Could not fetch '%1' from the repository", program);
        }
        context.middleware.asyncRemoteCall(
            "ApplicationManager", "migratForRestore",
            {migration.module, migration.saved.release, migration.saved.release});
        QFile::remove(path);
    }
}

void RestoreOperation::finish()
{
    if (!fetcher->failure().isEmpty()) {
        context.middleware.showFailure("Error while downloading files.", fetcher->failure());
    }
    if (failedItems > 0) {
        context.middleware.showFailure(
            "Error while restoring data.",
            QString("%1 items could not be restored and stay as they were.").arg(failedItems));
    }
    QString groups;
    for (const QStringList &group : context.modules.groups()) {
        groups += group.join(':') + ":";
    }
    logInfo("Restore finished (%1)", groups);
    VYXEvent event("restore_finished");
    event.addArgument(groups, "modules", true);
    context.middleware.notifyEvent(event);
}
