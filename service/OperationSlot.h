#pragma once

#include "outcome/OperationReport.h"
#include "platform/core/Waiter.h"

#include <QList>
#include <QObject>

#include <functional>
#include <memory>
#include <optional>

class Middleware;

/// The one place for a save, restore, reset or verify: who finds it taken is refused.
class OperationSlot : public QObject
{
    Q_OBJECT

public:
    using Operation = OperationReport::Operation;
    using Work = std::function<void(Waiter &, OperationReport &)>;

    /// The middleware must outlive the slot.
    explicit OperationSlot(Middleware &middleware) : middleware(middleware) {}

    /// Run an operation with a waiter and a report of its own. False, and the user is told, when another one
    /// is running.
    bool run(Operation operation, const Work &work);

    /// The same, begun from the event loop: the number of its job. Throws a ControlError when another one is
    /// running.
    quint32 start(Operation operation, const Work &work);

    /// The event loop has ended: a job that was promised and has not begun ends as stopped.
    void dropQueued();

    /// The same, at once, for what only looks and is no job. Throws a ControlError when another one is
    /// running, and when it neither succeeded nor did so in part.
    void look(Operation operation, const Work &work);

    /// What is to be done at the begin of each job. To be set before the first.
    void prepareBy(std::function<void(Waiter &)> step) { preparation = std::move(step); }

    /// What runs; null when nothing does.
    OperationReport *report() const { return running ? &running->report : nullptr; }

    /// True while an operation runs that uses the repository: neither saving nor restoring is possible.
    bool usesRepository() const { return running && running->operation != Operation::Reset; }

    /// True while something runs that leaves everything as it is, and lets others wait.
    bool isLooking() const { return running && (!running->isJob || running->operation == Operation::Verify); }

    /// End the operation that uses the repository, if one runs; it ends when its waits have ended.
    void repositoryChanged() { end(Waiter::End::RepositoryChanged); }
    void cancel() { end(Waiter::End::Cancelled); }

    /// Do something at once, or soon after the running operation has ended.
    void whenFree(const std::function<void()> &task);

Q_SIGNALS:
    void began();
    /// A job has ended; what only looks has, too, without a summary.
    void ended(const std::optional<OperationSummary> &summary);
    /// `usesRepository` has changed.
    void usesRepositoryChanged();

private:
    struct Running
    {
        Running(Operation operation, quint32 job)
            : operation(operation), isJob(job != 0), report(operation, job)
        {
        }

        Operation operation;
        bool isJob;
        Waiter waiter;
        OperationReport report;
    };

    void begin(Operation operation, quint32 job);
    void runQueued();
    void carryOut(const Work &work);
    OperationSummary finish(const Work &work);
    void end(Waiter::End reason);
    void refuseWhenTaken() const;

    Middleware &middleware;
    std::function<void(Waiter &)> preparation;
    std::unique_ptr<Running> running;
    Work queued; ///< of the running job, until it begins
    quint32 lastJob = 0;
    QList<std::function<void()>> postponed;
};
