#include "device/scheduler/Scheduler.h"

#include "device/common/PlainName.h"
#include "device/scheduler/ScheduleMatcher.h"
#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"

#include <algorithm>
#include <chrono>

namespace {

/// The clock may be set while we wait, so it is looked at again after this time at the latest.
constexpr qint64 longestWaitMs = 30000;

} // namespace

Scheduler::Scheduler() : VYXModule("Scheduler"), store(DevicePaths::configurationRoot() + "/scheduler.conf")
{
    timer.setSingleShot(true);
    timer.setTimerType(Qt::PreciseTimer);
    connect(&timer, &QTimer::timeout, this, &Scheduler::runDueTasks);
}

bool Scheduler::Init()
{
    registerDBusTimePattern();
    registerDBusCapability();
    clockOffset = qEnvironmentVariable("VYX_SCHEDULER_CLOCK_OFFSET").toLongLong();
    if (!store.load()) {
        logError("Could not read the tasks");
        return false;
    }
    return true;
}

bool Scheduler::Run()
{
    lastLook = now();
    waitForNextTask();
    return true;
}

int Scheduler::addRemoteCallTask(const QString &module, const QString &method, const TimePattern &pattern,
                                 const QDateTime &start)
{
    if (!isPlainName(module) || !isPlainName(method) || !start.isValid()) {
        refuse("the module, the method or the start of the task is invalid");
        return 0;
    }
    runDueTasks();
    const int id = store.add({0, module, method, pattern, start});
    if (id == 0) {
        refuse("the task could not be stored");
        return 0;
    }
    const ScheduledTask &task = store.getTasks().constLast();
    logInfo("Task %1: %2.%3, next at %4", id, module, method, nextTime(task).toString(Qt::ISODate));
    waitForNextTask();
    return id;
}

void Scheduler::removeTask(int id)
{
    if (!store.remove(id)) {
        refuse("the change could not be stored");
    }
    waitForNextTask();
}

void Scheduler::removeAllTasksByModule(const QString &module)
{
    if (!store.removeByModule(module)) {
        refuse("the change could not be stored");
    }
    waitForNextTask();
}

QString Scheduler::printTasks()
{
    QString text;
    for (const ScheduledTask &task : store.getTasks()) {
        const QDateTime next = nextTime(task);
        text += QString("Task %1: %2.%3, next: %4\n")
                    .arg(QString::number(task.id), task.module, task.method,
                         next.isValid() ? next.toString(Qt::ISODate) : "never");
    }
    return text;
}

void Scheduler::advanceClock(int seconds)
{
    clockOffset += seconds;
    runDueTasks();
}

QDateTime Scheduler::now() const
{
    return QDateTime::currentDateTime().addSecs(clockOffset);
}

QDateTime Scheduler::nextTime(const ScheduledTask &task) const
{
    return nextOccurrence(task.pattern, std::max(lastLook, task.start.addMSecs(-1)));
}

void Scheduler::runDueTasks()
{
    const QDateTime time = now();
    for (const ScheduledTask &task : store.getTasks()) {
        const QDateTime due = nextTime(task);
        if (due.isValid() && due <= time) {
            logInfo("Task %1: calling %2.%3", task.id, task.module, task.method);
            asyncRemoteCall(task.module, task.method, {task.id});
        }
    }
    lastLook = time;
    waitForNextTask();
}

void Scheduler::waitForNextTask()
{
    const QDateTime time = now();
    qint64 wait = longestWaitMs;
    for (const ScheduledTask &task : store.getTasks()) {
        const QDateTime next = nextTime(task);
        if (next.isValid()) {
            wait = std::clamp<qint64>(time.msecsTo(next), 1, wait);
        }
    }
    timer.start(std::chrono::milliseconds(wait));
}

void Scheduler::refuse(const QString &reason)
{
    logError("Request refused: %1", reason);
    if (calledFromDBus()) {
        sendErrorReply(QDBusError::InvalidArgs, reason);
    }
}
