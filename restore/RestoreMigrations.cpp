#include "catalogue/ItemNames.h"
#include "outcome/OperationReport.h"
#include "platform/core/Middleware.h"
#include "platform/core/Waiter.h"
#include "platform/DevicePaths.h"
#include "platform/logger/LogFields.h"
#include "platform/logger/VYXLogger.h"
#include "repository/RepositorySession.h"
#include "restorable/KnownModules.h"
#include "restore/FetchAhead.h"
#include "restore/ItemRestorer.h"
#include "restore/RestoreOperation.h"

#include <QFile>

// The migration of data that other releases of their modules have saved.

namespace {

/// The most bytes of a migration program.
constexpr qint64 largestProgram = qint64{256} * 1024 * 1024;

} // namespace

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
    context.report.enter(OperationReport::Phase::Migrating);
    if (!context.priorities.high) {
        return;
    }
    for (const Migration &migration : checkVersions()) {
        if (context.waiter.mustEnd()) {
            return;
        }
        const LogFields fields({{"VYX_MODULE", migration.module.toUtf8()}});
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
