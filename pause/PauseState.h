#pragma once

#include <QString>

#include <optional>

/// What is known of a process that was asked to pause.
enum class ProcessState {
    NoProcess, ///< the process id is not one: nothing to wait for
    Vanished,  ///< its state cannot be read: it has ended
    Running,
    Paused,
};

/// True for a decimal number above 1: only such a process is ever looked at or sent a signal.
bool isProcessId(const QString &pid);

/// True for the state letters of a stopped (T) or traced (t) process.
bool isPausedState(const QString &state);

/// The state letter in a line of /proc/<pid>/stat: what follows the process's name, which is in parentheses
/// and may itself hold spaces and parentheses. Empty when the line has none.
QString stateOfStatLine(const QString &line);

QString statFileName(const QString &pid);

/// The state letter of a process as /proc has it; nothing when that cannot be read.
std::optional<QString> processStateLetter(const QString &pid);

ProcessState processState(const QString &pid);
