#include "platform/core/BoundedWait.h"

#include "platform/core/VYXApplication.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QTimer>

WaitOutcome waitUntil(const std::function<bool()> &condition, std::chrono::milliseconds limit,
                      const std::function<quint64()> &progress)
{
    quint64 lastProgress = progress ? progress() : 0;
    QDeadlineTimer deadline(limit, Qt::PreciseTimer);
    // Without a timer of its own an idle event loop would sleep past the deadline.
    QTimer wake;
    wake.setTimerType(Qt::PreciseTimer);
    wake.setSingleShot(true);
    wake.start(limit);
    while (!condition()) {
        if (VYXApplication::isEnding()) {
            return WaitOutcome::Ending;
        }
        if (progress && progress() != lastProgress) {
            lastProgress = progress();
            deadline.setRemainingTime(limit, Qt::PreciseTimer);
        }
        if (deadline.hasExpired()) {
            return WaitOutcome::TimedOut;
        }
        wake.start(
            deadline.remainingTimeAsDuration() < std::chrono::milliseconds(1)
                ? std::chrono::milliseconds(1)
                : std::chrono::duration_cast<std::chrono::milliseconds>(deadline.remainingTimeAsDuration()));
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return WaitOutcome::Met;
}

bool dispatchEventsFor(std::chrono::milliseconds period)
{
    return waitUntil([] { return false; }, period) == WaitOutcome::TimedOut;
}
