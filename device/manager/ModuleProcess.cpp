#include "device/manager/ModuleProcess.h"

#include "platform/logger/VYXLogger.h"

#include <QCoreApplication>
#include <QTimer>

#include <csignal>
#include <sys/prctl.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr int startLimitMs = 5000;
constexpr int endLimitMs = 3000;
constexpr int killLimitMs = 1000;

} // namespace

ModuleProcess::ModuleProcess(ModuleDefinition newDefinition, QObject *parent)
    : QObject(parent), definition(std::move(newDefinition))
{
    const bool isPath = definition.program.contains('/');
    process.setProgram(isPath ? definition.program
                              : QCoreApplication::applicationDirPath() + "/" + definition.program);
    process.setArguments(definition.arguments);
    process.setProcessChannelMode(QProcess::ForwardedChannels);
    process.setStandardInputFile(QProcess::nullDevice());
    // A paused process leaves SIGTERM pending, so only SIGKILL reaches each child of a manager that died.
    process.setChildProcessModifier([manager = getpid()] {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != manager) {
            _exit(1);
        }
    });
    connect(&process, &QProcess::finished, this, &ModuleProcess::ended);
}

ModuleProcess::~ModuleProcess()
{
    disconnect(&process, nullptr, this, nullptr);
}

bool ModuleProcess::isRunning() const
{
    return process.state() == QProcess::Running;
}

ApplicationConfig ModuleProcess::describe() const
{
    const QString pid = isRunning() ? QString::number(process.processId()) : QString("0");
    return {definition.name, pid, definition.version, definition.release,
            isRunning() ? "STARTED" : "STOPPED"};
}

void ModuleProcess::setRelease(const QString &release, const QString &version)
{
    definition.release = release;
    definition.version = version;
}

bool ModuleProcess::start()
{
    if (isRunning()) {
        return true;
    }
    endRequested = false;
    process.start();
    if (!process.waitForStarted(startLimitMs)) {
        logError("Module '%1' could not be started: %2", definition.name, process.errorString());
        return false;
    }
    logInfo("Module '%1' started (pid %2)", definition.name, process.processId());
    return true;
}

void ModuleProcess::requestEnd()
{
    if (!isRunning()) {
        return;
    }
    endRequested = true;
    const qint64 pid = process.processId();
    process.terminate();
    ::kill(static_cast<pid_t>(pid), SIGCONT);
    QTimer::singleShot(endLimitMs, this, [this, pid] {
        if (process.processId() == pid) {
            process.kill();
        }
    });
}

bool ModuleProcess::waitForEnd(int milliseconds)
{
    if (!isRunning() || process.waitForFinished(milliseconds)) {
        return true;
    }
    logWarning("Module '%1' does not end: killing it", definition.name);
    process.kill();
    return process.waitForFinished(killLimitMs) || !isRunning();
}

void ModuleProcess::ended(int exitCode, QProcess::ExitStatus status)
{
    if (endRequested) {
        logInfo("Module '%1' ended", definition.name);
    } else if (status == QProcess::CrashExit) {
        logWarning("Module '%1' was ended by a signal", definition.name);
    } else {
        logWarning("Module '%1' ended on its own with status %2", definition.name, exitCode);
    }
}
