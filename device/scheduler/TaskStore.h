#pragma once

#include "platform/records/TimePattern.h"

#include <QDateTime>
#include <QList>
#include <QString>

/// A remote call that is made again and again at the times of a pattern.
struct ScheduledTask
{
    int id = 0;
    QString module;
    QString method;
    TimePattern pattern;
    QDateTime start; ///< no call is made before it
};

/// The tasks and the next task id, kept in a file that is replaced as a whole at every change. Ids count from
/// 1 and are never used again.
class TaskStore
{
public:
    explicit TaskStore(QString path);

    /// Read the file; false when it exists and cannot be read, or holds a line that is no task. A missing
    /// file is an empty store.
    bool load();

    const QList<ScheduledTask> &getTasks() const { return tasks; }

    /// Keep a task and give it an id; 0 when the file could not be written, nothing is then changed.
    int add(const ScheduledTask &task);

    /// Forget tasks; false when the file could not be written, nothing is then changed. Forgetting what is
    /// not there succeeds.
    bool remove(int id);
    bool removeByModule(const QString &module);

private:
    bool replace(const QList<ScheduledTask> &newTasks, int newNextId);

    QString path;
    QList<ScheduledTask> tasks;
    int nextId = 1;
};
