#pragma once

#include <QList>
#include <QString>

#include <utility>

/// A process that was asked to pause, told apart from a later one of the same number by its start time.
struct PausingProcess
{
    QString module;
    QString pid;
    QString startTime; ///< field 22 of /proc/<pid>/stat, clock ticks since the system's start

    /// True while that very process exists.
    bool isAlive() const;
};

/// Who was asked to pause, on disk, so that a service that was killed meanwhile can resume them at its next
/// start.
namespace PauseRecord {

/// Note modules with their process ids; processes that do not exist are left out.
void write(const QList<std::pair<QString, QString>> &group);
QList<PausingProcess> read();
void remove();

} // namespace PauseRecord
