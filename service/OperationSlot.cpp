#include "service/OperationSlot.h"

#include "platform/core/Middleware.h"
#include "platform/logger/LogFields.h"
#include "platform/logger/VYXLogger.h"

#include <exception>
#include <utility>

namespace {

QString amountOf(const ItemCount &count)
{
    return QString("%1 (%2 bytes)").arg(QString::number(count.items), QString::number(count.bytes));
}

/// What only looks is no event of the device's life.
void tell(bool isJob, const QString &text)
{
    if (isJob) {
        logInfo("%1", text);
    } else {
        logDebug("%1", text);
    }
}

void tellBegin(const OperationReport &report, bool isJob)
{
    tell(isJob, QString("Operation begins: %1").arg(report.operationName()));
}

void tellEnd(const OperationSummary &summary, bool isJob)
{
    const QString code = Outcome::name(summary.code);
    const LogFields fields({{"VYX_CODE", code.toUtf8()}});
    tell(isJob, QString("Operation ends: %1, %2; items done: %3, skipped: %4, failed: %5; in %6 s")
                    .arg(summary.operation, code, amountOf(summary.done), amountOf(summary.skipped),
                         amountOf(summary.failed), QString::number(summary.seconds, 'f', 3)));
}

} // namespace

bool OperationSlot::run(Operation operation, const Work &work)
{
    if (running) {
        const QString text = "Another save, restore or reset is running: abort.";
        logWarning("%1", text);
        middleware.showFailure(text);
        return false;
    }
    begin(operation, ++lastJob);
    finish(work);
    return true;
}

quint32 OperationSlot::start(Operation operation, const Work &work)
{
    refuseWhenTaken();
    begin(operation, ++lastJob);
    queued = work;
    QMetaObject::invokeMethod(this, &OperationSlot::runQueued, Qt::QueuedConnection);
    return lastJob;
}

void OperationSlot::runQueued()
{
    if (const Work work = std::exchange(queued, {})) {
        finish(work);
    }
}

void OperationSlot::dropQueued()
{
    if (std::exchange(queued, {})) {
        finish([](Waiter &, OperationReport &report) { report.end(Outcome::Code::Stopped); });
    }
}

void OperationSlot::look(Operation operation, const Work &work)
{
    refuseWhenTaken();
    begin(operation, 0);
    const OperationSummary summary = finish(work);
    if (summary.code != Outcome::Code::Success && summary.code != Outcome::Code::Partial) {
        throw ControlError{summary.code, summary.text};
    }
}

void OperationSlot::refuseWhenTaken() const
{
    if (running) {
        throw ControlError{Outcome::Code::Busy, Outcome::text(Outcome::Code::Busy)};
    }
}

void OperationSlot::begin(Operation operation, quint32 job)
{
    running = std::make_unique<Running>(operation, job);
    Q_EMIT began();
    if (usesRepository()) {
        Q_EMIT usesRepositoryChanged();
    }
}

/// Whatever is thrown, the slot is free afterwards.
void OperationSlot::carryOut(const Work &work)
{
    const auto fail = [this](const QString &why) {
        logError("The operation was given up: %1", why);
        running->report.end(Outcome::Code::Failed, why);
    };
    try {
        work(running->waiter, running->report);
    } catch (const std::exception &exception) {
        fail(exception.what());
    } catch (...) {
        fail("an unknown exception");
    }
}

OperationSummary OperationSlot::finish(const Work &work)
{
    const bool wasJob = running->isJob;
    const LogFields fields({{"VYX_OPERATION", running->report.operationName().toUtf8()}});
    tellBegin(running->report, wasJob);
    if (wasJob && preparation) {
        preparation(running->waiter);
    }
    carryOut(work);
    const bool usedRepository = usesRepository();
    OperationSummary summary = running->report.finish();
    tellEnd(summary, wasJob);
    running.reset();
    if (usedRepository) {
        Q_EMIT usesRepositoryChanged();
    }
    Q_EMIT ended(wasJob ? std::optional(summary) : std::nullopt);
    for (const std::function<void()> &task : std::exchange(postponed, {})) {
        QMetaObject::invokeMethod(
            this, [this, task] { whenFree(task); }, Qt::QueuedConnection);
    }
    return summary;
}

void OperationSlot::end(Waiter::End reason)
{
    if (usesRepository()) {
        running->waiter.end(reason);
    }
}

void OperationSlot::whenFree(const std::function<void()> &task)
{
    if (running) {
        postponed << task;
    } else {
        task();
    }
}
