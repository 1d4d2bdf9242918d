#pragma once

#include "pause/PauseState.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QSet>
#include <QString>

#include <chrono>
#include <utility>

class Middleware;
class PauseKeeper;
class VYXEvent;
class Waiter;

/// Modules with their process ids as text.
using PauseGroup = QList<std::pair<QString, QString>>;

/// How modules are waited for.
struct PauseLimits
{
    /// The longest time between two looks at their states.
    std::chrono::milliseconds pollPeriod = std::chrono::milliseconds(500);
    std::chrono::milliseconds patience = 500 * pollPeriod;
};

/// Modules that are stopped. Who holds it has them stopped, and its end resumes them.
class Pause
{
public:
    Pause(Pause &&other) noexcept : keeper(std::exchange(other.keeper, nullptr)) {}
    Pause(const Pause &) = delete;
    Pause &operator=(const Pause &) = delete;
    Pause &operator=(Pause &&) = delete;
    ~Pause();

    /// False when a module did not stop in time, or the wait had to end: then nobody is stopped any more.
    bool holds() const { return keeper != nullptr; }

private:
    friend class PauseKeeper;
    explicit Pause(PauseKeeper *keeper) : keeper(keeper) {}

    PauseKeeper *keeper;
};

/// Pauses and resumes modules, and keeps account of who was asked, so that nobody stays stopped.
///
/// A module is asked by the event "stop_save_restore", says so by "stop_save_restore_OK" and stops its own
/// process; the keeper looks at its state in /proc then, and again and again, and resumes it with SIGCONT. It
/// outlives the operations: a module that stops after its group was given up is resumed as soon as it is
/// seen, and who is asked is noted on disk for the next start. One group at a time is paused.
class PauseKeeper : public QObject
{
    Q_OBJECT

public:
    /// The middleware must outlive the keeper.
    explicit PauseKeeper(Middleware &middleware, PauseLimits limits = {});

    /// Listen to the modules, and resume those that an earlier process of this service was pausing when it
    /// died.
    void start();

    /// Ask the modules of a group to pause and wait until all of them are; the own module is left out. `save`
    /// is passed on to them: true for a save, false for a restore.
    Pause stopModules(const PauseGroup &group, bool save, Waiter &waiter);

private:
    friend class Pause;

    void ask(bool save);
    bool areModulesPaused() const;
    bool waitForModules(Waiter &waiter);
    void settlePausedModules() const;
    void unstopModules();
    void moduleStopForSaveRestore(const VYXEvent &evt);
    bool findProcess(const QString &module);
    void resumeLateModule(const QString &module, const QString &pid, int triesLeft);
    bool isInGroup(const QString &module) const;
    void note();

    Middleware &middleware;
    PauseLimits limits;
    PauseGroup current;            ///< the group that is being paused or is paused
    PauseGroup late;               ///< those given up that may still pause, or could not be resumed
    bool hasHeard = false;         ///< a module of it has said that it pauses, since they were looked at
    QHash<QString, QString> asked; ///< process id of every module that was ever asked
};
