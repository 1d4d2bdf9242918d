#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <chrono>
#include <sys/types.h>

class Waiter;

/// What became of a child process.
struct CommandResult
{
    bool finished = false; ///< it started and ended by itself within its limit
    int exitCode = -1;     ///< when `finished`; of a program that was fed, else the signal that ended it
    QByteArray output;     ///< standard output, also of a child that was ended
    QString errorText;     ///< standard error, or why the child did not finish

    bool succeeded() const { return finished && exitCode == 0; }
};

/// Run one program without a shell and wait for it with events served. Standard input is empty, LC_ALL is C.
/// The child and its children are killed when they take longer than the limit, print more than 1 MiB, or when
/// the waiter has to end; none is started after that. Of the standard error the first 64 KiB are kept. The
/// child does not outlive this process.
CommandResult runCommand(Waiter &waiter, const QString &program, const QStringList &arguments,
                         std::chrono::milliseconds limit = std::chrono::minutes(30));

/// The same with several children of one program side by side, one for each list of arguments.
QList<CommandResult> runCommands(Waiter &waiter, const QString &program, const QList<QStringList> &arguments,
                                 std::chrono::milliseconds limit);

/// What a child may use up; it is ended when it exceeds one of them.
struct CommandLimits
{
    std::chrono::milliseconds wallClock;
    std::chrono::seconds processorTime;
    qint64 fileSize;   ///< of each file that it writes, in bytes
    qint64 memory = 0; ///< its address space, in bytes; 0 for any
};

/// Whose rights a child has.
struct ChildIdentity
{
    uid_t user;
    gid_t group;
};
