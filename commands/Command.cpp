#include "commands/Command.h"

#include "commands/ChildProcess.h"
#include "platform/core/Waiter.h"

#include <QProcess>

using namespace ChildProcess;

namespace {

constexpr qsizetype keptErrorBytes = 4096; ///< of a program that is fed
constexpr qsizetype mostErrorBytes = qsizetype{64} * 1024;
constexpr qsizetype mostOutputBytes = qsizetype{1024} * 1024;

/// What has come of the child's output goes into the result. False when it is more than may come.
bool collect(QProcess &process, CommandResult &result, QByteArray &errors)
{
    result.output += process.readAllStandardOutput();
    errors += process.readAllStandardError().left(mostErrorBytes - errors.size());
    return result.output.size() <= mostOutputBytes;
}

CommandResult run(Waiter &waiter, const QString &program, const QStringList &arguments,
                  std::chrono::milliseconds limit, const std::optional<CommandLimits> &limits)
{
    CommandResult result;
    if (waiter.mustEnd()) {
        result.errorText = "the operation has to end";
        return result;
    }
    QProcess process;
    prepare(process, limits);
    process.start(program, arguments);
    QByteArray errors;
    bool bounded = true;
    const auto ended = [&] {
        const bool running = process.state() != QProcess::NotRunning;
        bounded = bounded && collect(process, result, errors);
        return !running || !bounded;
    };
    const WaitOutcome outcome = waiter.waitUntil(ended, limit);
    if (!bounded) {
        killGroup(process);
        result.output.clear();
        result.errorText = QString("it printed more than %1 bytes").arg(mostOutputBytes);
        return result;
    }
    if (outcome != WaitOutcome::Met) {
        killGroup(process);
        result.errorText = reasonOf(outcome);
        result.output += process.readAllStandardOutput();
        return result;
    }
    if (process.error() == QProcess::FailedToStart) {
        result.errorText = process.errorString();
        return result;
    }
    result.finished = process.exitStatus() == QProcess::NormalExit;
    result.exitCode = process.exitCode();
    result.errorText = QString::fromLocal8Bit(errors).trimmed();
    return result;
}

} // namespace

CommandResult runCommand(Waiter &waiter, const QString &program, const QStringList &arguments,
                         std::chrono::milliseconds limit)
{
    return run(waiter, program, arguments, limit, {});
}

CommandResult runShellLine(Waiter &waiter, const QString &line, const CommandLimits &limits)
{
    return run(waiter, "/bin/sh", {"-c", line}, limits.wallClock, limits);
}

CommandResult runFed(Waiter &waiter, const QString &line, const QString &program,
                     const QStringList &arguments, const CommandLimits &limits,
                     const std::optional<ChildIdentity> &as)
{
    CommandResult result;
    if (waiter.mustEnd()) {
        result.errorText = reasonOf(WaitOutcome::Ended);
        return result;
    }
    QProcess feeder;
    QProcess eater;
    prepare(feeder, limits);
    prepare(eater, limits, nullptr, as);
    feeder.setStandardErrorFile(QProcess::nullDevice());
    feeder.setStandardOutputProcess(&eater);
    eater.setStandardOutputFile(QProcess::nullDevice());
    feeder.start("/bin/sh", {"-c", line});
    eater.start(program, arguments);
    QByteArray errors;
    const WaitOutcome outcome = waiter.waitUntil(
        [&] {
            errors += eater.readAllStandardError().left(keptErrorBytes - errors.size());
            return eater.state() == QProcess::NotRunning;
        },
        limits.wallClock);
    killGroup(eater);
    killGroup(feeder);
    result.finished = outcome == WaitOutcome::Met && eater.exitStatus() == QProcess::NormalExit &&
                      eater.error() != QProcess::FailedToStart;
    result.exitCode = eater.exitCode();
    result.errorText =
        outcome == WaitOutcome::Met ? QString::fromLocal8Bit(errors).trimmed() : reasonOf(outcome);
    return result;
}
