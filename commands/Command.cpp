#include "commands/Command.h"

#include "platform/core/Waiter.h"

#include <QProcess>
#include <QProcessEnvironment>

#include <csignal>
#include <sys/prctl.h>
#include <unistd.h>

namespace {

constexpr int killLimitMs = 5000;

void prepare(QProcess &process)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("LC_ALL", "C");
    process.setProcessEnvironment(environment);
    process.setStandardInputFile(QProcess::nullDevice());
    process.setChildProcessModifier([] {
        setpgid(0, 0);
        prctl(PR_SET_PDEATHSIG, SIGKILL);
    });
}

void killGroup(QProcess &process)
{
    const auto group = static_cast<pid_t>(process.processId());
    if (group > 1) {
        kill(-group, SIGKILL);
    }
    process.kill();
    process.waitForFinished(killLimitMs);
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
    const WaitOutcome outcome =
        waiter.waitUntil([&process] { return process.state() == QProcess::NotRunning; }, limit);
    if (outcome != WaitOutcome::Met) {
        killGroup(process);
        result.errorText =
            outcome == WaitOutcome::TimedOut ? "time limit reached" : "the operation has to end";
        result.output = process.readAllStandardOutput();
        return result;
    }
    if (process.error() == QProcess::FailedToStart) {
        result.errorText = process.errorString();
        return result;
    }
    result.finished = process.exitStatus() == QProcess::NormalExit;
    result.exitCode = process.exitCode();
    result.output = process.readAllStandardOutput();
    result.errorText = QString::fromLocal8Bit(process.readAllStandardError()).trimmed();
    return result;
}

CommandResult runShellLine(Waiter &waiter, const QString &line)
{
    return runCommand(waiter, "/bin/sh", {"-c", line});
}
