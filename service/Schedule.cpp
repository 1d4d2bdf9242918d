#include "platform/logger/VYXLogger.h"
#include "platform/records/TimePattern.h"
#include "service/SaveSchedule.h"
#include "service/VYXSaveRestore.h"

#include <QDateTime>

#include <cstdlib>

void VYXSaveRestore::setSaveRestoreSchedule(int schedule, bool type, bool activate)
{
    saveSchedule = schedule;
    saveScheduleType = !activate ? 0 : type ? 1 : 2;
}

void VYXSaveRestore::refreshSaveFrequency()
{
    std::srand(static_cast<unsigned>(QDateTime::currentSecsSinceEpoch()));
    const int minute = static_cast<int>(std::rand() / static_cast<double>(RAND_MAX) * 5.0);
    setSaveFrequency(saveSchedule, minute, saveScheduleType == 1, saveScheduleType != 0);
}

void VYXSaveRestore::setSaveFrequency(int hour, int minute, bool frequency, bool enable)
{
    logDebug("VYXSaveRestore::setSaveFrequency(%1, %2, %3, %4)", hour, minute, frequency, enable);
    if (!enable) {
        cancelScheduledTask();
        return;
    }
    const auto hours = scheduledHours(hour, frequency, QTime::currentTime().hour());
    if (!hours) {
        logError("A period of %1 hours is refused: saves are scheduled every hour at the most", hour);
        return;
    }
    if (!replaceScheduledTask(*hours, minute)) {
        logError("Could not schedule save operation!");
    }
}

void VYXSaveRestore::cancelScheduledTask()
{
    const RemoteCallResult result = callModule("Scheduler", "removeTask", {scheduledTaskId}, waiter);
    if (result.outcome == RemoteCallResult::Unreachable) {
        logError("Could not cancel scheduled save operations! (%1)", result.error);
    }
}

bool VYXSaveRestore::replaceScheduledTask(const QList<int> &hours, int minute)
{
    TimePattern pattern;
    pattern.minutes = {minute};
    pattern.hours = hours;
    if (scheduledTaskId == -1) {
        logDebug("First schedule of a save/restore operation");
    } else {
        logDebug("Unschedule previous save/restore operation (Scheduler task id: %1)", scheduledTaskId);
        if (callModule("Scheduler", "removeTask", {scheduledTaskId}, waiter).outcome ==
            RemoteCallResult::Unreachable) {
            return false;
        }
    }
    const RemoteCallResult added =
        callModule("Scheduler", "addRemoteCallTask",
                   {getModuleName(), "startSaveOnRepository", QVariant::fromValue(pattern),
                    QVariant::fromValue(QDateTime::currentDateTime())},
                   waiter);
    if (added.outcome == RemoteCallResult::Unreachable) {
        return false;
    }
    scheduledTaskId = added.value.typeId() == QMetaType::Int ? added.value.toInt() : 0;
    return true;
}

void VYXSaveRestore::startSaveOnRepository(int)
{
    if (!saveRestoreEnabled) {
        logDebug("Save/Restore is disabled: abort");
        return;
    }
    if (repository == nullptr) {
        logError("Repository URL not provided!");
        return;
    }
    startSaveOnRepository();
}
