#pragma once

#include <QList>

#include <atomic>
#include <chrono>
#include <functional>

enum class WaitOutcome { Met, TimedOut, Ended };

/// Waits with the process's events served: the only place that dispatches them.
///
/// While somebody waits, calls of other modules, signals and timers are handled; whoever can be re-entered so
/// takes a `Waiter &`, and what has none cannot be. Each operation has a waiter of its own. It remembers why
/// the operation has to end early; from then on no wait of it lasts any longer. Main thread
/// only; but work that it runs beside may ask whether waits have to end.
class Waiter
{
public:
    enum class End {
        None,
        ProcessEnds,       ///< the process was asked to end
        RepositoryChanged, ///< the operation's repository is no longer the chosen one
        Cancelled,         ///< somebody no longer wants the operation
    };

    /// While it lives, and no longer than that, waits go on although they have to end: so that what was begun
    /// can be left in order. Main thread only.
    class Grace
    {
    public:
        Grace(Waiter &waiter, std::chrono::milliseconds limit);
        ~Grace();
        Grace(const Grace &) = delete;
        Grace &operator=(const Grace &) = delete;

    private:
        Waiter &waiter;
    };

    Waiter() = default;
    Waiter(const Waiter &) = delete;
    Waiter &operator=(const Waiter &) = delete;

    /// End all waits, present and to come. The first reason stays.
    void end(End reason);

    /// Why waits end; that the process ends comes before every other reason. May be asked in any thread.
    End endReason() const;
    bool mustEnd() const { return endReason() != End::None; }

    /// Wait until the condition holds, the limit has passed, or waits have to end; the condition is looked at
    /// first, and again after every round of events. With `progress`, the limit is one of inactivity: it
    /// starts anew whenever the value changes.
    WaitOutcome waitUntil(const std::function<bool()> &condition, std::chrono::milliseconds limit,
                          const std::function<quint64()> &progress = {});

    /// Serve events for that time; false when waits had to end before.
    bool dispatchEventsFor(std::chrono::milliseconds period);

    /// Run work in a thread of its own and wait for its end, which is always waited for. The work must touch
    /// nothing that events can reach; what takes long asks `mustEnd` again and again.
    void runBeside(const std::function<void()> &work);

    /// The same with several pieces of work, as many at a time as there are processors.
    void runAllBeside(const QList<std::function<void()>> &works);

private:
    using Clock = std::chrono::steady_clock;

    std::chrono::milliseconds graceLeft() const;

    std::atomic<End> latched = End::None;
    std::atomic<Clock::time_point> graceEnd = Clock::time_point(); ///< the epoch when there is none
};
