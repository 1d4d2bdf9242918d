#include "pause/PauseRecord.h"

#include "pause/PauseState.h"
#include "platform/Descriptor.h"
#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"
#include "platform/WholeFile.h"

#include <QFile>
#include <QStringList>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr qint64 largestRecord = qint64{1024} * 1024;

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

/// The content of a regular file of the service's own user; nothing of any other, or of one that is too
/// large.
QByteArray content(const QString &path)
{
    const Descriptor found(open(QFile::encodeName(path).constData(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!found.isOpen()) {
        return {};
    }
    Descriptor opened = openedForReading(found);
    const struct stat status = opened.status();
    QFile file;
    if (!opened.isOpen() || status.st_uid != geteuid() || status.st_size > largestRecord ||
        !file.open(opened.release(), QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
        logWarning("The note '%1' of who is asked to pause is refused: it is none of the service's own",
                   path);
        return {};
    }
    return file.read(largestRecord);
}

} // namespace

bool PausingProcess::isAlive() const
{
    return !startTime.isEmpty() && startTimeOf(pid) == startTime;
}

namespace PauseRecord {

void write(const QList<std::pair<QString, QString>> &group)
{
    QByteArray text;
    for (const auto &[module, pid] : group) {
        const QString startTime = startTimeOf(pid);
        if (!startTime.isEmpty()) {
            text += QStringList{module, pid, startTime}.join('\t').toUtf8() + "\n";
        }
    }
    if (!writeWholeFile(DevicePaths::pauseRecord(), text)) {
        logWarning("Could not note in '%1' who is asked to pause", DevicePaths::pauseRecord());
    }
}

QList<PausingProcess> read()
{
    QList<PausingProcess> processes;
    for (const QString &line :
         QString::fromUtf8(content(DevicePaths::pauseRecord())).split('\n', Qt::SkipEmptyParts)) {
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
