#pragma once

#include <QDateTime>
#include <QList>

#include <optional>

class Middleware;
class Waiter;
struct RemoteCallResult;

/// The Scheduler's task that starts the periodic saves: one at the most.
///
/// Replacing it takes calls that are waited for; what is asked for meanwhile is done when they have ended,
/// and of several wishes only the last.
class Schedule
{
public:
    /// Both must outlive the schedule.
    Schedule(Middleware &middleware, Waiter &waiter) : middleware(middleware), waiter(waiter) {}

    /// Remove every task of this module, as an earlier process of it may have left some.
    void removeAllTasks();

    /// Replace the task: at `hour` o'clock (1 to 24), or every `hour` hours (at least 1) when `frequency` is
    /// true. Without `enable` it is removed.
    void setSaveFrequency(int hour, int minute, bool frequency, bool enable);

    /// When the next save is due after that moment; nothing when none is scheduled.
    std::optional<QDateTime> due(const QDateTime &now) const;

private:
    /// What the task is to be: hours and minute; no hours for no task.
    struct Wish
    {
        QList<int> hours;
        int minute = 0;
    };

    void apply(const Wish &wish);
    void cancelTask();
    RemoteCallResult removeTask();
    bool replaceTask(const Wish &wish);

    /// An id that the Scheduler gives to no task.
    static constexpr int unknownTask = 0;

    Middleware &middleware;
    Waiter &waiter;
    std::optional<Wish> wanted;
    Wish scheduled; ///< as the Scheduler has it
    bool applying = false;
    int scheduledTaskId = -1;
};
