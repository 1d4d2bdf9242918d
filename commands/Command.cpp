#include "commands/Command.h"

#include "platform/core/VYXApplication.h"
#include "platform/logger/VYXLogger.h"

#include <QDeadlineTimer>
#include <QProcess>
#include <QProcessEnvironment>

#include <csignal>
#include <sys/prctl.h>
#include <unistd.h>

namespace {

constexpr int sliceMs = 100;
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

/// Empty when the child ended by itself, else the reason why it was ended.
QString waitForEnd(QProcess &process, const CommandOptions &options)
{
    const QDeadlineTimer deadline(options.limit);
    while (process.state() != QProcess::NotRunning) {
        if (deadline.hasExpired()) {
            return "time limit reached";
        }
        if (!options.evenWhenEnding && VYXApplication::isEnding()) {
            return "the process is asked to end";
        }
        process.waitForFinished(static_cast<int>(qMin<qint64>(sliceMs, deadline.remainingTime())));
    }
    return {};
}

} // namespace

CommandResult runCommand(const QString &program, const QStringList &arguments, CommandOptions options)
{
    CommandResult result;
    if (!options.evenWhenEnding && VYXApplication::isEnding()) {
        result.errorText = "the process is asked to end";
        return result;
    }
    QProcess process;
    prepare(process);
    process.start(program, arguments);
    if (!process.waitForStarted(killLimitMs)) {
        result.errorText = process.errorString();
        return result;
    }
    result.errorText = waitForEnd(process, options);
    if (!result.errorText.isEmpty()) {
        killGroup(process);
        result.output = process.readAllStandardOutput();
        return result;
    }
    result.finished = process.exitStatus() == QProcess::NormalExit;
    result.exitCode = process.exitCode();
    result.output = process.readAllStandardOutput();
    result.errorText = QString::fromLocal8Bit(process.readAllStandardError()).trimmed();
    return result;
}

CommandResult runShellLine(const QString &line, CommandOptions options)
{
    return runCommand("/bin/sh", {"-c", line}, options);
}
