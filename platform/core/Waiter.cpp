#include "platform/core/Waiter.h"

#include "platform/core/VYXApplication.h"
#include "platform/logger/LogFields.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <memory>
#include <vector>

using namespace std::chrono_literals;

void Waiter::end(End reason)
{
    if (latched == End::None) {
        latched = reason;
    }
}

Waiter::Grace::Grace(Waiter &waiter, std::chrono::milliseconds limit) : waiter(waiter)
{
    waiter.graceEnd = Clock::now() + limit;
}

Waiter::Grace::~Grace()
{
    waiter.graceEnd = Clock::time_point();
}

/// Zero when there is none.
std::chrono::milliseconds Waiter::graceLeft() const
{
    const Clock::time_point end = graceEnd;
    return end == Clock::time_point()
               ? 0ms
               : std::max(std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()), 0ms);
}

Waiter::End Waiter::endReason() const
{
    if (graceLeft() > 0ms) {
        return End::None;
    }
    return VYXApplication::isEnding() ? End::ProcessEnds : latched.load();
}

WaitOutcome Waiter::waitUntil(const std::function<bool()> &condition, std::chrono::milliseconds limit,
                              const std::function<quint64()> &progress)
{
    quint64 lastProgress = progress ? progress() : 0;
    QDeadlineTimer deadline(limit, Qt::PreciseTimer);
    // Without a timer of its own an idle event loop would sleep past the deadline.
    QTimer wake;
    wake.setTimerType(Qt::PreciseTimer);
    wake.setSingleShot(true);
    while (!condition()) {
        if (mustEnd()) {
            return WaitOutcome::Ended;
        }
        if (progress && progress() != lastProgress) {
            lastProgress = progress();
            deadline.setRemainingTime(limit, Qt::PreciseTimer);
        }
        if (deadline.hasExpired()) {
            return WaitOutcome::TimedOut;
        }
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline.remainingTimeAsDuration());
        if (const auto grace = graceLeft(); grace > 0ms) {
            left = std::min(left, grace);
        }
        wake.start(std::max<std::chrono::milliseconds>(left, 1ms));
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return WaitOutcome::Met;
}

bool Waiter::dispatchEventsFor(std::chrono::milliseconds period)
{
    return waitUntil([] { return false; }, period) == WaitOutcome::TimedOut;
}

void Waiter::runBeside(const std::function<void()> &work)
{
    runAllBeside({work});
}

void Waiter::runAllBeside(const QList<std::function<void()>> &works)
{
    std::atomic<qsizetype> next = 0;
    const auto takeTurns = [&, fields = LogFields::current()] {
        const LogFields ofWaiter(fields);
        for (qsizetype number = next++; number < works.size(); number = next++) {
            works.at(number)();
        }
    };
    const qsizetype count = std::min<qsizetype>(QThread::idealThreadCount(), works.size());
    qsizetype running = count;
    QEventLoop loop;
    std::vector<std::unique_ptr<QThread>> threads;
    for (qsizetype number = 0; number < count; ++number) {
        threads.emplace_back(QThread::create(takeTurns));
        QObject::connect(threads.back().get(), &QThread::finished, &loop, [&] {
            if (--running == 0) {
                loop.quit();
            }
        });
        threads.back()->start();
    }
    if (count > 0) {
        // The loop also ends when the process is asked to.
        loop.exec();
    }
    for (const auto &thread : threads) {
        thread->wait();
    }
}
