#include "pause/PauseRecord.h"
#include "pause/PauseState.h"
#include "platform/core/VYXApplication.h"
#include "platform/logger/VYXLogger.h"
#include "service/VYXSaveRestore.h"

#include <QDeadlineTimer>
#include <QThread>
#include <QTimer>

#include <csignal>

using namespace std::chrono_literals;

namespace {

constexpr int pausePolls = 500;
constexpr int resumeTries = 5;
constexpr auto resumeTryPause = 100ms;
constexpr auto settleLimit = 5s;
constexpr auto settlePollPause = 20ms;
constexpr int lateResumeTries = 20;
constexpr auto lateResumePause = 250ms;

} // namespace

bool VYXSaveRestore::stopModules(const QStringList &group, bool save)
{
    QStringList modules = group;
    modules.removeAll(getModuleName());
    logDebug("Stop modules: %1", modules.join(", "));
    pausedModules.clear();
    QString names;
    QMap<QString, QString> pids;
    for (const QString &module : std::as_const(modules)) {
        names += module + ":";
        const QString pid = knownModules.processIdOf(module);
        logDebug("%1: %2", module, pid);
        pausedModules.insert(module, {pid, false});
        pids.insert(module, pid);
        askedModules.insert(module);
    }
    PauseRecord::write(pids);
    VYXEvent event("stop_save_restore");
    event.addArgument(names, "ModulesPidsList", true);
    event.addArgument(save, "Save", true);
    logDebug("Ask modules to prepare for saving/restoring data: %1", names);
    pausing = true;
    notifyEvent(event);
    logInfo("Wait for modules to be paused (%1)", modules.join(", "));
    for (int poll = 0; !areModulesPaused(); ++poll) {
        if (poll == pausePolls || !waiter.dispatchEventsFor(pausePollPeriod)) {
            logWarning("Failed to stop all modules for save/restore");
            settlePausedModules(modules);
            unstopModules(modules);
            return false;
        }
    }
    logInfo("All modules paused, ready to save/restore");
    pausedModules.clear();
    return true;
}

bool VYXSaveRestore::areModulesPaused()
{
    for (auto entry = pausedModules.cbegin(); entry != pausedModules.cend(); ++entry) {
        const QString &module = entry.key();
        const QString &pid = entry->pid;
        if (!isProcessId(pid)) {
            logError("Wrong module pid: %1:%2", module, pid);
            continue;
        }
        logDebug("%1", statFileName(pid));
        const auto state = processStateLetter(pid);
        if (!state) {
            logWarning("Can not open /proc/%1/stat for module %2", pid, module);
            continue;
        }
        logDebug("Process %1 state: %2", module, *state);
        if (!isPausedState(*state)) {
            return false;
        }
    }
    return true;
}

void VYXSaveRestore::moduleStopForSaveRestore(VYXEvent evt)
{
    const QString module = evt.getArgument("ModuleName").toString();
    logDebug("Module '%1' said it is ready for Save/Restore", module);
    // Whoever was asked for an earlier group may be heard only now; it is no unknown module.
    if (pausedModules.contains(module) || !askedModules.contains(module)) {
        pausedModules[module].ready = true;
    }
    if (!pausing) {
        resumeLateModule(module, knownModules.processIdOf(module), lateResumeTries);
    }
}

/// A module that pauses after the wait for it has ended would stay paused.
void VYXSaveRestore::resumeLateModule(const QString &module, const QString &pid, int triesLeft)
{
    if (!pausing && processState(pid) == ProcessState::Paused) {
        logWarning("Module '%1' has paused too late and is resumed", module);
        continueModule(module, pid);
        return;
    }
    if (triesLeft > 0) {
        QTimer::singleShot(lateResumePause, this, [this, module, pid, triesLeft] {
            resumeLateModule(module, pid, pausing ? triesLeft : triesLeft - 1);
        });
    }
}

void VYXSaveRestore::resumeAfterKill()
{
    for (const PausingProcess &process : PauseRecord::read()) {
        if (process.isAlive()) {
            resumeLateModule(process.module, process.pid, lateResumeTries);
        }
    }
    QTimer::singleShot(lateResumeTries * lateResumePause, this, [this] {
        if (!pausing) {
            PauseRecord::remove();
        }
    });
}

/// When the process ends, nobody will be there to resume a module that is still on its way to pause: give
/// each a moment to arrive.
void VYXSaveRestore::settlePausedModules(const QStringList &modules)
{
    if (!VYXApplication::isEnding()) {
        return;
    }
    const QDeadlineTimer deadline(settleLimit);
    QStringList waiting = modules;
    while (!waiting.isEmpty() && !deadline.hasExpired()) {
        waiting.removeIf([this](const QString &module) {
            return processState(knownModules.processIdOf(module)) != ProcessState::Running;
        });
        QThread::msleep(settlePollPause.count());
    }
}

void VYXSaveRestore::unstopModules(const QStringList &modules)
{
    for (const QString &module : modules) {
        const QString pid = knownModules.processIdOf(module);
        if (module != getModuleName() && isProcessId(pid)) {
            continueModule(module, pid);
        }
    }
    pausedModules.clear();
    PauseRecord::remove();
    pausing = false;
}

bool VYXSaveRestore::continueModule(const QString &module, const QString &pid)
{
    const QStringList arguments = {"-SIGCONT", pid};
    logDebug("Unstopping module %1 (%2)", module, "kill " + arguments.join(' '));
    for (int attempt = 1; attempt <= resumeTries; ++attempt) {
        if (kill(static_cast<pid_t>(pid.toInt()), SIGCONT) == 0) {
            return true;
        }
        if (attempt < resumeTries) {
            logDebug("Retry unstop module");
            QThread::msleep(resumeTryPause.count());
        }
    }
    logError("Could not resume module %1 (%2)", module, pid);
    return false;
}
