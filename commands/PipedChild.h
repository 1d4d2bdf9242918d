#pragma once

#include "commands/ChildProcess.h"
#include "platform/Descriptor.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QDeadlineTimer>
#include <QProcess>

#include <chrono>
#include <functional>

struct pollfd;
class Waiter;

/// A program whose standard input or output is a thread of this process, which runs and waits for it. The
/// thread must not end before. Of the standard error the first 4096 bytes are kept.
class PipedChild
{
public:
    enum class Pipe { Input, Output };

    /// The waiter must outlive the object.
    PipedChild(const Waiter &waiter, Pipe pipe, std::chrono::milliseconds limit);

    /// Start the program, have `work` feed it or take what it prints, and wait for its end. It is ended when
    /// the work fails, at the limit, and when the waiter has to end; `fault` says then what has failed. The
    /// rest is as with `runCommand`.
    CommandResult run(const QString &program, const QStringList &arguments, const CommandLimits &limits,
                      const std::optional<ChildIdentity> &as, const std::function<bool()> &work,
                      const QString &fault);

    /// Of a program that is fed: the next portion. False when it cannot be sent.
    bool send(QByteArrayView portion);

    /// Hand on what the program prints, to its end. False when it did not get so far.
    bool passOn(const std::function<bool(QByteArrayView)> &take);

private:
    /// The two ends of what leads to the child or from it.
    struct Channel
    {
        Descriptor own;
        Descriptor childs;
    };

    static Channel channelTo();
    static Channel channelFrom(int size = 0);
    bool start(const QString &program, const QStringList &arguments, const CommandLimits &limits,
               const std::optional<ChildIdentity> &as);
    bool awaitReadiness(short event);
    WaitOutcome awaitEnd();
    void takeErrors(const pollfd &said);
    QString errorText();

    const Waiter &waiter;
    const QDeadlineTimer deadline;
    const Pipe pipe;
    Channel stream;
    Channel errors;
    QByteArray errorBytes;
    QProcess process;
};
