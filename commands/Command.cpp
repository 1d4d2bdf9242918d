#include "commands/Command.h"

#include "commands/ChildProcess.h"
#include "platform/core/Waiter.h"

#include <QProcess>

using namespace ChildProcess;

namespace {

constexpr qsizetype mostErrorBytes = qsizetype{64} * 1024;
constexpr qsizetype mostOutputBytes = qsizetype{1024} * 1024;

/// What has come of the child's output goes into the result. False when it is more than may come.
bool collect(QProcess &process, CommandResult &result, QByteArray &errors)
{
    result.output += process.readAllStandardOutput();
    errors += process.readAllStandardError().left(mostErrorBytes - errors.size());
    return result.output.size() <= mostOutputBytes;
}

} // namespace

CommandResult runCommand(Waiter &waiter, const QString &program, const QStringList &arguments,
                         std::chrono::milliseconds limit)
{
    CommandResult result;
    if (waiter.mustEnd()) {
        result.errorText = "the operation has to end";
        return result;
    }
    QProcess process;
    prepare(process);
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
