#include "outcome/Code.h"
#include "repository/Repository.h"
#include "restore/RestoreOperation.h"
#include "save/SaveOperation.h"
#include "service/JobOptions.h"
#include "service/VYXSaveRestore.h"
#include "verify/RepositoryListing.h"
#include "verify/VerifyOperation.h"

// The methods of the control interface.

using Outcome::Code;
using Operation = OperationReport::Operation;

namespace {

/// Nothing else can come of it: whoever asked is told at once.
void refuseWithout(bool enabled, bool hasRepository)
{
    if (!hasRepository) {
        throw ControlError{Code::NoRepository, Outcome::text(Code::NoRepository)};
    }
    if (!enabled) {
        throw ControlError{Code::Disabled, Outcome::text(Code::Disabled)};
    }
}

void refuseWhenTooLarge(const auto &items)
{
    if (!fitsAnswer(items)) {
        throw ControlError{Code::Failed,
                           QString("The answer would be too large: there are %1 items").arg(items.size())};
    }
}

} // namespace

OperationContext VYXSaveRestore::jobContext(Waiter &operationWaiter, OperationReport &report,
                                            const JobOptions &options)
{
    OperationContext context = operationContext(operationWaiter, report);
    context.options = options.operation;
    if (options.operation.dryRun) {
        report.setDryRun();
    }
    context.priorities = options.priorities.value_or(context.priorities);
    return context;
}

uint VYXSaveRestore::Save(const QVariantMap &options)
{
    const JobOptions job = JobOptions::parse(options, {"modules", "priorities", "dry_run", "repair"});
    refuseWithout(settings.enabled, hasRepositoryUrl());
    return operations.start(Operation::Save, [=, this](Waiter &operationWaiter, OperationReport &report) {
        const OperationContext context = jobContext(operationWaiter, report, job);
        const QString place = context.repository ? context.repository->getRepositoryUrl() : QString();
        SaveOperation operation(context);
        if (job.repair) {
            operation.repair(control.lastOperations().damaged(place));
        }
        operation.startSaveOnRepository();
        control.lastOperations().noteRepaired(place, operation.repaired());
    });
}

uint VYXSaveRestore::Restore(const QVariantMap &options)
{
    const JobOptions job = JobOptions::parse(options, {"modules", "priorities", "dry_run"});
    refuseWithout(settings.enabled, hasRepositoryUrl());
    return operations.start(Operation::Restore, [=, this](Waiter &operationWaiter, OperationReport &report) {
        RestoreOperation(jobContext(operationWaiter, report, job)).startRestoreFromRepository();
    });
}

uint VYXSaveRestore::Verify(const QVariantMap &options)
{
    const JobOptions job = JobOptions::parse(options, {"full"});
    refuseWithout(true, hasRepositoryUrl());
    return operations.start(Operation::Verify, [=, this](Waiter &operationWaiter, OperationReport &report) {
        const OperationContext context = jobContext(operationWaiter, report, job);
        VerifyOperation operation(context, job.full);
        if (operation.run()) {
            const auto keep = job.full ? &LastOperations::setDamaged : &LastOperations::addDamaged;
            (control.lastOperations().*keep)(context.repository->getRepositoryUrl(), operation.damaged());
        }
    });
}

void VYXSaveRestore::Cancel()
{
    const OperationReport *const report = operations.report();
    if (report != nullptr && !operations.usesRepository()) {
        throw ControlError{Code::NotCancellable, Outcome::text(Code::NotCancellable)};
    }
    operations.cancel();
}

ItemList VYXSaveRestore::List()
{
    refuseWithout(true, hasRepositoryUrl());
    ItemList items;
    operations.look(Operation::Verify, [&](Waiter &operationWaiter, OperationReport &report) {
        items = listRepository(jobContext(operationWaiter, report, {.operation = {.quiet = true}}));
    });
    refuseWhenTooLarge(items);
    return items;
}

PreviewList VYXSaveRestore::Preview()
{
    refuseWithout(settings.enabled, hasRepositoryUrl());
    PreviewList items;
    operations.look(Operation::Restore, [&](Waiter &operationWaiter, OperationReport &report) {
        RestoreOperation operation(
            jobContext(operationWaiter, report, {.operation = {.dryRun = true, .quiet = true}}));
        operation.startRestoreFromRepository();
        items = operation.preview();
    });
    refuseWhenTooLarge(items);
    return items;
}
