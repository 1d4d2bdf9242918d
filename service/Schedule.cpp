#include "service/Schedule.h"

#include "platform/core/Middleware.h"
#include "platform/logger/VYXLogger.h"
#include "platform/records/TimePattern.h"
#include "service/SaveSchedule.h"

#include <utility>

void Schedule::removeAllTasks()
{
    const RemoteCallResult result =
        middleware.callModule("Scheduler", "removeAllTasksByModule", {middleware.getModuleName()}, waiter);
    if (result.outcome == RemoteCallResult::Unreachable) {
        logError("Could not remove scheduled task");
    }
}

void Schedule::setSaveFrequency(int hour, int minute, bool frequency, bool enable)
{
    logDebug("VYXSaveRestore::setSaveFrequency(%1, %2, %3, %4)", hour, minute, frequency, enable);
    const auto hours = enable ? scheduledHours(hour, frequency, QTime::currentTime().hour()) : QList<int>();
    if (!hours) {
        logError("A period of %1 hours is refused: saves are scheduled every hour at the most", hour);
        return;
    }
    wanted = Wish{*hours, minute};
    if (applying) {
        return;
    }
    applying = true;
    while (wanted) {
        apply(*std::exchange(wanted, std::nullopt));
    }
    applying = false;
}

void Schedule::apply(const Wish &wish)
{
    if (wish.hours.isEmpty()) {
        cancelTask();
        scheduled = {};
    } else if (!replaceTask(wish)) {
        logError("Could not schedule save operation!");
    }
}

std::optional<QDateTime> Schedule::due(const QDateTime &now) const
{
    constexpr int hoursOfDay = 24;
    std::optional<QDateTime> first;
    for (const int hour : scheduled.hours) {
        const QTime time(hour == hoursOfDay ? 0 : hour, scheduled.minute);
        for (const int days : {0, 1}) {
            const QDateTime at(now.date().addDays(days), time);
            // There is no task at an hour that no day has.
            if (time.isValid() && at > now && (!first || at < *first)) {
                first = at;
            }
        }
    }
    return first;
}

/// A Scheduler that did not answer in time may still have taken the task: of those without an id all go.
RemoteCallResult Schedule::removeTask()
{
    if (scheduledTaskId == unknownTask) {
        return middleware.callModule("Scheduler", "removeAllTasksByModule", {middleware.getModuleName()},
                                     waiter);
    }
    return middleware.callModule("Scheduler", "removeTask", {scheduledTaskId}, waiter);
}

void Schedule::cancelTask()
{
    const RemoteCallResult result = removeTask();
    if (result.outcome == RemoteCallResult::Unreachable) {
        logError("Could not cancel scheduled save operations! (%1)", result.error);
    }
}

bool Schedule::replaceTask(const Wish &wish)
{
    TimePattern pattern;
    pattern.minutes = {wish.minute};
    pattern.hours = wish.hours;
    if (scheduledTaskId == -1) {
        logDebug("First schedule of a save/restore operation");
    } else {
        logDebug("Unschedule previous save/restore operation (Scheduler task id: %1)", scheduledTaskId);
        if (removeTask().outcome == RemoteCallResult::Unreachable) {
            return false;
        }
        scheduled = {};
    }
    const RemoteCallResult added = middleware.callModule("Scheduler", "addRemoteCallTask",
                                                         {middleware.getModuleName(), "startSaveOnRepository",
                                                          QVariant::fromValue(pattern),
                                                          QVariant::fromValue(QDateTime::currentDateTime())},
                                                         waiter);
    if (added.outcome == RemoteCallResult::Unreachable) {
        return false;
    }
    scheduledTaskId = added.value.typeId() == QMetaType::Int ? added.value.toInt() : unknownTask;
    scheduled = added.outcome == RemoteCallResult::Answered ? wish : Wish();
    return true;
}
