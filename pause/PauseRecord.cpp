#include "pause/PauseRecord.h"

#include "pause/PauseState.h"
#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"

#include <QFile>
#include <QSaveFile>
#include <QStringList>

namespace {

/// The process name, field 2, is in parentheses and may hold anything; the start time is the 20th field
/// behind it.
QString startTimeOf(const QString &pid)
{
    constexpr int fieldsBehindName = 19;
    QFile file(statFileName(pid));
    if (!isProcessId(pid) || !file.open(QIODevice::ReadOnly)) {
        return {};
    }
    const QString line = QString::fromLocal8Bit(file.readAll());
    return line.mid(line.lastIndexOf(')') + 2).split(' ').value(fieldsBehindName);
}

} // namespace

bool PausingProcess::isAlive() const
{
    return !startTime.isEmpty() && startTimeOf(pid) == startTime;
}

namespace PauseRecord {

void write(const QList<std::pair<QString, QString>> &group)
{
    QSaveFile file(DevicePaths::pauseRecord());
    bool written = file.open(QIODevice::WriteOnly);
    for (const auto &[module, pid] : group) {
        const QString startTime = startTimeOf(pid);
        if (!startTime.isEmpty()) {
            const QByteArray line = QStringList{module, pid, startTime}.join('\t').toUtf8() + "\n";
            written = written && file.write(line) == line.size();
        }
    }
    if (!written || !file.commit()) {
        logWarning("Could not note in '%1' who is asked to pause", file.fileName());
    }
}

QList<PausingProcess> read()
{
    QFile file(DevicePaths::pauseRecord());
    QList<PausingProcess> processes;
    if (!file.open(QIODevice::ReadOnly)) {
        return processes;
    }
    for (const QString &line : QString::fromUtf8(file.readAll()).split('\n', Qt::SkipEmptyParts)) {
        const QStringList fields = line.split('\t');
        if (fields.size() == 3) {
            processes << PausingProcess{fields.at(0), fields.at(1), fields.at(2)};
        }
    }
    return processes;
}

void remove()
{
    QFile::remove(DevicePaths::pauseRecord());
}

} // namespace PauseRecord
