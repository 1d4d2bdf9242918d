#pragma once

#include "device/scheduler/TaskStore.h"
#include "platform/core/VYXModule.h"
#include "platform/records/TimePattern.h"

#include <QDateTime>
#include <QTimer>

/// Calls methods of other modules at the times they asked for.
///
/// The tasks outlive a restart. A time that passed while the clock was not looked at (the process was paused,
/// the clock was set) is made up for by one call. The environment variable VYX_SCHEDULER_CLOCK_OFFSET, in
/// seconds, puts the Scheduler's clock ahead of the wall clock.
class Scheduler : public VYXModule
{
    Q_OBJECT

public:
    Scheduler();

    bool Init() override;
    bool Run() override;

public Q_SLOTS:
    /// Call `method(int taskId)` of `module` at every time of the pattern from `start` on; the task's id.
    int addRemoteCallTask(const QString &module, const QString &method, const TimePattern &pattern,
                          const QDateTime &start);
    /// Forget a task; an unknown id does nothing.
    void removeTask(int id);
    void removeAllTasksByModule(const QString &module);
    /// The tasks and their next times, one a line.
    QString printTasks();
    /// Put the clock ahead by so many seconds, back when negative, and call what has become due.
    void advanceClock(int seconds);

private:
    QDateTime now() const;
    QDateTime nextTime(const ScheduledTask &task) const;
    void runDueTasks();
    void waitForNextTask();
    void refuse(const QString &reason);

    TaskStore store;
    QTimer timer;
    qint64 clockOffset = 0;
    QDateTime lastLook; ///< whatever was due up to this time has been called
};
