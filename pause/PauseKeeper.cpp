#include "pause/PauseKeeper.h"

#include "pause/PauseRecord.h"
#include "platform/core/Middleware.h"
#include "platform/core/VYXEvent.h"
#include "platform/core/Waiter.h"
#include "platform/Descriptor.h"
#include "platform/logger/VYXLogger.h"

#include <QDeadlineTimer>
#include <QStringList>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <sys/syscall.h>
#include <unistd.h>

using namespace std::chrono_literals;

namespace {

constexpr auto firstPeriod = 1ms;
constexpr auto settleLimit = 5s;
constexpr auto settlePollPause = 20ms;
constexpr int lateResumeTries = 20;
constexpr auto lateResumePause = 250ms;

QStringList namesOf(const PauseGroup &group)
{
    QStringList names;
    for (const auto &process : group) {
        names << process.first;
    }
    return names;
}

/// The kernel's own handle of a process cannot come to mean another one; old kernels have none.
int sendContinue(pid_t process)
{
    const Descriptor handle(static_cast<int>(syscall(SYS_pidfd_open, process, 0)));
    return handle.isOpen()
               ? static_cast<int>(syscall(SYS_pidfd_send_signal, handle.number(), SIGCONT, nullptr, 0))
               : kill(process, SIGCONT);
}

/// True when the process runs again, or has ended.
bool continueModule(const QString &module, const QString &pid)
{
    logDebug("Unstopping module %1 (%2)", module, "kill -SIGCONT " + pid);
    if (sendContinue(static_cast<pid_t>(pid.toInt())) == 0) {
        return true;
    }
    const bool ended = errno == ESRCH;
    logError("Could not resume module %1 (%2)", module, pid);
    return ended;
}

} // namespace

Pause::~Pause()
{
    if (keeper != nullptr) {
        keeper->unstopModules();
    }
}

PauseKeeper::PauseKeeper(Middleware &middleware, PauseLimits limits) : middleware(middleware), limits(limits)
{
}

void PauseKeeper::start()
{
    middleware.subscribeEvent("stop_save_restore_OK", this,
                              [this](const VYXEvent &event) { moduleStopForSaveRestore(event); });
    for (const PausingProcess &process : PauseRecord::read()) {
        if (process.isAlive()) {
            asked.insert(process.module, process.pid);
            late << std::pair(process.module, process.pid);
        }
    }
    note();
    for (const auto &[module, pid] : PauseGroup(late)) {
        resumeLateModule(module, pid, lateResumeTries);
    }
}

/// Write down who may be paused, for the next start.
void PauseKeeper::note()
{
    late.removeIf([](const auto &process) { return processState(process.second) == ProcessState::Vanished; });
    PauseGroup group = current;
    for (const auto &process : late) {
        if (!group.contains(process)) {
            group << process;
        }
    }
    if (group.isEmpty()) {
        PauseRecord::remove();
    } else {
        PauseRecord::write(group);
    }
}

Pause PauseKeeper::stopModules(const PauseGroup &group, bool save, Waiter &waiter)
{
    current = group;
    current.removeIf([this](const auto &process) { return process.first == middleware.getModuleName(); });
    ask(save);
    const QString names = namesOf(current).join(", ");
    logDebug("Wait for modules to be paused (%1)", names);
    if (waitForModules(waiter)) {
        logDebug("All modules paused, ready to save/restore");
        return Pause(this);
    }
    logWarning("Failed to stop all modules for save/restore");
    if (waiter.endReason() == Waiter::End::ProcessEnds) {
        settlePausedModules();
    }
    unstopModules();
    return Pause(nullptr);
}

/// A module stops a moment after it has said so: they are looked at then, soon after, and less and less
/// often.
bool PauseKeeper::waitForModules(Waiter &waiter)
{
    const QDeadlineTimer deadline(limits.patience);
    std::chrono::milliseconds period = firstPeriod;
    while (!areModulesPaused()) {
        hasHeard = false;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline.remainingTimeAsDuration());
        const WaitOutcome outcome = waiter.waitUntil([this] { return hasHeard; }, std::min(period, left));
        if (outcome == WaitOutcome::Ended || deadline.hasExpired()) {
            return false;
        }
        period = outcome == WaitOutcome::Met ? firstPeriod : std::min(2 * period, limits.pollPeriod);
    }
    return true;
}

void PauseKeeper::ask(bool save)
{
    logDebug("Stop modules: %1", namesOf(current).join(", "));
    QString names;
    for (auto &[module, pid] : current) {
        asked.insert(module, pid);
        findProcess(module);
        pid = asked.value(module);
        names += module + ":";
        logDebug("%1: %2", module, pid);
    }
    note();
    VYXEvent event("stop_save_restore");
    event.addArgument(names, "ModulesPidsList", true);
    event.addArgument(save, "Save", true);
    logDebug("Ask modules to prepare for saving/restoring data: %1", names);
    middleware.notifyEvent(event);
}

bool PauseKeeper::areModulesPaused() const
{
    for (const auto &[module, pid] : current) {
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

/// When the process ends, nobody will be there to resume a module that is still on its way to pause: give
/// each a moment to arrive.
void PauseKeeper::settlePausedModules() const
{
    const QDeadlineTimer deadline(settleLimit);
    PauseGroup waiting = current;
    while (!waiting.isEmpty() && !deadline.hasExpired()) {
        waiting.removeIf(
            [](const auto &process) { return processState(process.second) != ProcessState::Running; });
        QThread::msleep(settlePollPause.count());
    }
}

void PauseKeeper::unstopModules()
{
    for (const auto &process : std::exchange(current, {})) {
        const auto &[module, pid] = process;
        if (!isProcessId(pid)) {
            continue;
        }
        const bool onItsWay = processState(pid) == ProcessState::Running;
        const bool resumed = continueModule(module, pid);
        late.removeAll(process);
        if (onItsWay || !resumed) {
            late << process;
        }
        if (onItsWay) {
            resumeLateModule(module, pid, lateResumeTries);
        }
    }
    note();
}

bool PauseKeeper::isInGroup(const QString &module) const
{
    return std::any_of(current.cbegin(), current.cend(),
                       [&](const auto &process) { return process.first == module; });
}

void PauseKeeper::moduleStopForSaveRestore(const VYXEvent &evt)
{
    const QString module = evt.getArgument("ModuleName").toString();
    logDebug("Module '%1' said it is ready for Save/Restore", module);
    if (!asked.contains(module)) {
        return;
    }
    const bool found = findProcess(module);
    hasHeard = true;
    if (!isInGroup(module)) {
        resumeLateModule(module, asked.value(module), lateResumeTries);
        return;
    }
    for (auto &process : current) {
        if (found && process.first == module) {
            process.second = asked.value(module);
            note();
        }
    }
}

/// A module may have been started, or started anew, since the list of processes was made: it hears the
/// request all the same, and pauses. True when it has another process than the one that was known.
bool PauseKeeper::findProcess(const QString &module)
{
    const ProcessState known = processState(asked.value(module));
    if (known == ProcessState::Running || known == ProcessState::Paused) {
        return false;
    }
    const QString pid = middleware.processIdOf(module);
    if (!isProcessId(pid)) {
        return false;
    }
    asked.insert(module, pid);
    return true;
}

/// A module that pauses after the wait for it has ended would stay paused.
void PauseKeeper::resumeLateModule(const QString &module, const QString &pid, int triesLeft)
{
    const bool wanted = isInGroup(module);
    if (!wanted && processState(pid) == ProcessState::Paused) {
        logWarning("Module '%1' has paused too late and is resumed", module);
        if (continueModule(module, pid)) {
            late.removeAll({module, pid});
            note();
        }
        return;
    }
    if (triesLeft > 0) {
        QTimer::singleShot(lateResumePause, this, [this, module, pid, wanted, triesLeft] {
            resumeLateModule(module, pid, wanted ? triesLeft : triesLeft - 1);
        });
    }
}
