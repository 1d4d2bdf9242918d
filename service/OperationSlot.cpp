#include "service/OperationSlot.h"

#include "platform/core/Middleware.h"
#include "platform/logger/VYXLogger.h"

#include <utility>

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
    QMetaObject::invokeMethod(
        this, [this, work] { finish(work); }, Qt::QueuedConnection);
    return lastJob;
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

OperationSummary OperationSlot::finish(const Work &work)
{
    work(running->waiter, running->report);
    const bool usedRepository = usesRepository();
    const OperationSummary summary = running->report.finish();
    const bool wasJob = running->isJob;
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
