#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <chrono>

/// What became of a child process.
struct CommandResult
{
    bool finished = false; ///< it started and ended by itself within its limit
    int exitCode = -1;     ///< meaningful when `finished`
    QByteArray output;     ///< standard output, also of a child that was ended
    QString errorText;     ///< standard error, or why the child did not finish

    bool succeeded() const { return finished && exitCode == 0; }
};

struct CommandOptions
{
    /// The child and its children are killed when they take longer.
    std::chrono::milliseconds limit = std::chrono::minutes(30);
    /// False: the child is killed as soon as the process is asked to end, and none is started after that.
    bool evenWhenEnding = false;
};

/// Run one program without a shell and wait for it. Standard input is empty, LC_ALL is C, no events are
/// dispatched meanwhile. The child does not outlive this process.
CommandResult runCommand(const QString &program, const QStringList &arguments, CommandOptions options = {});

/// Run one line in a POSIX shell, in the same way. Values in the line must be quoted (see ShellText).
CommandResult runShellLine(const QString &line, CommandOptions options = {});
