#include "device/scheduler/TaskStore.h"

#include <QFile>
#include <QSaveFile>

#include <optional>
#include <utility>

namespace {

QString joined(const QList<int> &values)
{
    QStringList texts;
    for (const int value : values) {
        texts.append(QString::number(value));
    }
    return texts.join(',');
}

QList<int> split(const QString &text)
{
    QList<int> values;
    for (const QString &value : text.split(',', Qt::SkipEmptyParts)) {
        values.append(value.toInt());
    }
    return values;
}

/// One line: id, module, method, start in UTC, then the six lists of the pattern, separated by tabs.
QString toLine(const ScheduledTask &task)
{
    const TimePattern &pattern = task.pattern;
    return QStringList{QString::number(task.id),
                       task.module,
                       task.method,
                       task.start.toUTC().toString(Qt::ISODateWithMs),
                       joined(pattern.seconds),
                       joined(pattern.minutes),
                       joined(pattern.hours),
                       joined(pattern.daysOfMonth),
                       joined(pattern.months),
                       joined(pattern.daysOfWeek)}
        .join('\t');
}

std::optional<ScheduledTask> fromLine(const QString &line)
{
    const QStringList fields = line.split('\t');
    if (fields.size() != 10) {
        return std::nullopt;
    }
    const ScheduledTask task = {fields.at(0).toInt(),
                                fields.at(1),
                                fields.at(2),
                                {split(fields.at(4)), split(fields.at(5)), split(fields.at(6)),
                                 split(fields.at(7)), split(fields.at(8)), split(fields.at(9))},
                                QDateTime::fromString(fields.at(3), Qt::ISODateWithMs)};
    return task.id > 0 && task.start.isValid() ? std::optional(task) : std::nullopt;
}

} // namespace

TaskStore::TaskStore(QString path) : path(std::move(path)) {}

bool TaskStore::load()
{
    QFile file(path);
    if (!file.exists()) {
        return true;
    }
    if (!file.open(QIODevice::ReadOnly)) {
        return false;
    }
    QStringList lines = QString::fromUtf8(file.readAll()).split('\n', Qt::SkipEmptyParts);
    if (lines.isEmpty()) {
        return false;
    }
    nextId = lines.takeFirst().toInt();
    for (const QString &line : lines) {
        const std::optional<ScheduledTask> task = fromLine(line);
        if (!task || task->id >= nextId) {
            return false;
        }
        tasks.append(*task);
    }
    return nextId > 0;
}

int TaskStore::add(const ScheduledTask &task)
{
    QList<ScheduledTask> changed = tasks;
    changed.append(task);
    changed.last().id = nextId;
    return replace(changed, nextId + 1) ? changed.constLast().id : 0;
}

bool TaskStore::remove(int id)
{
    QList<ScheduledTask> changed = tasks;
    changed.removeIf([id](const ScheduledTask &task) { return task.id == id; });
    return changed.size() == tasks.size() || replace(changed, nextId);
}

bool TaskStore::removeByModule(const QString &module)
{
    QList<ScheduledTask> changed = tasks;
    changed.removeIf([&](const ScheduledTask &task) { return task.module == module; });
    return changed.size() == tasks.size() || replace(changed, nextId);
}

bool TaskStore::replace(const QList<ScheduledTask> &newTasks, int newNextId)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        return false;
    }
    file.write(QByteArray::number(newNextId) + "\n");
    for (const ScheduledTask &task : newTasks) {
        file.write((toLine(task) + "\n").toUtf8());
    }
    if (!file.commit()) {
        return false;
    }
    tasks = newTasks;
    nextId = newNextId;
    return true;
}
