#include "outcome/OperationReport.h"
#include "platform/core/Waiter.h"
#include "repository/RepositorySession.h"
#include "restore/FetchAhead.h"
#include "restore/ItemRestorer.h"
#include "restore/RestoreNote.h"
#include "restore/RestoreOperation.h"

#include <QFileInfo>
#include <QHash>
#include <QSet>

#include <algorithm>

// What a restore tells of its items, before and after it has dealt with them.

namespace {

/// What an item of unknown size counts in the progress, and one of none.
constexpr quint64 usualBytes = quint64{256} * 1024;

quint64 weight(const PlannedItem &planned)
{
    return std::max<quint64>(planned.bytes, planned.bytes == 0 ? usualBytes : 1);
}

/// Of a file or database as it was put back; of a directory they are not known.
quint64 sizeOf(const PlannedItem &planned)
{
    return planned.item.getKind() == DirectoryItem
               ? 0
               : static_cast<quint64>(QFileInfo(planned.item.livePath()).size());
}

} // namespace

void RestoreOperation::reportDone(const PlannedItem &planned, const std::optional<QString> &why)
{
    const QString module = planned.item.getModule();
    context.report.advance(weight(planned));
    if (!why) {
        context.report.noteDone(
            {module, planned.item.getPath(), planned.isNew ? "created" : "replaced", sizeOf(planned)});
        return;
    }
    ++failedItems;
    failedModules << module;
    if (!context.waiter.mustEnd()) {
        context.report.noteFailed(
            {module, planned.item.getPath(), why->isEmpty() ? "It could not be put in its place" : *why});
    }
}

void RestoreOperation::takePlan(const RestorePlanner &planner)
{
    plan = planner.plan();
    previewed = planner.preview();
    if (context.options.dryRun) {
        checkEntries();
    }
    reportPreview();
}

/// What is promised may be gone, and rows alone make no database.
void RestoreOperation::checkEntries()
{
    QHash<std::pair<QString, QString>, PreviewedItem *> changing;
    for (PreviewedItem &one : previewed) {
        if (one.action == "replace" || one.action == "create") {
            changing.insert({one.module, one.item}, &one);
        }
    }
    QList<PlannedItem> newDatabases;
    for (const ModulePlan &module : std::as_const(plan)) {
        for (const PlannedItem &planned : module.items) {
            PreviewedItem *const item = changing.value({planned.item.getModule(), planned.item.getPath()});
            const QString entry = planned.entry;
            if (item == nullptr) {
                continue;
            }
            if (planned.isNew && planned.item.getKind() == DatabaseItem) {
                newDatabases << planned;
            }
            session->submit({RepositoryRequest::Look, entry, {}}, [=](const RequestOutcome &outcome) {
                if (!outcome.stored()) {
                    item->action = "keep";
                    item->why = outcome.kind == RequestOutcome::Absent
                                    ? QString("Absent: the repository does not hold '%1'").arg(entry)
                                    : outcome.text;
                }
            });
        }
    }
    session->waitForRequests();
    for (const PlannedItem &planned : std::as_const(newDatabases)) {
        checkDump(planned, *changing.value({planned.item.getModule(), planned.item.getPath()}));
    }
}

void RestoreOperation::checkDump(const PlannedItem &planned, PreviewedItem &item)
{
    if (item.action == "keep" || context.waiter.mustEnd()) {
        return;
    }
    fetcher->begin({planned});
    fetcher->require({planned});
    DatabaseRestore dump(planned.source, planned.item.livePath());
    dump.setPromised(planned.digest);
    const QString fault = fetcher->isFetched(planned) ? dump.look(context.waiter) : fetcher->fault(planned);
    if (!fault.isEmpty() || !dump.isWhole()) {
        item.action = "keep";
        item.why = fault.isEmpty() ? "It does not exist: there is nothing to put the saved rows into" : fault;
    }
    fetcher->release(planned);
}

/// What is in the plan is told of when it has been dealt with.
void RestoreOperation::reportPreview() const
{
    QSet<std::pair<QString, QString>> dealtWith;
    for (const ModulePlan &module : context.options.dryRun ? RestorePlan() : plan) {
        for (const PlannedItem &planned : module.items) {
            dealtWith.insert({planned.item.getModule(), planned.item.getPath()});
        }
    }
    for (const PreviewedItem &one : previewed) {
        if (one.action == "same" || one.why == RestorePlanner::lowerPriority) {
            context.report.noteSkipped();
        } else if (one.action == "keep" && !dealtWith.contains({one.module, one.item})) {
            context.report.noteFailed({one.module, one.item, one.why});
        } else if (context.options.dryRun) {
            context.report.noteDone(
                {one.module, one.item, one.action == "create" ? "created" : "replaced", 0});
        }
    }
}

void RestoreOperation::beginRestoring() const
{
    quint64 bytes = 0;
    QStringList modules;
    for (auto module = plan.cbegin(); module != plan.cend(); ++module) {
        for (const PlannedItem &planned : module->items) {
            bytes += weight(planned);
        }
        modules << (module->items.isEmpty() ? QStringList() : QStringList(module.key()));
    }
    context.report.enter(OperationReport::Phase::Restoring, bytes);
    if (!modules.isEmpty()) {
        context.waiter.runBeside([&] { RestoreNote::write(modules); });
    }
}

void RestoreOperation::endRestoring()
{
    restorer.reset(); // and what it has not put in place
    context.waiter.runBeside(&RestoreNote::clear);
}
