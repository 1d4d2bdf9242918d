#include "repository/HttpEngine.h"

#include <csignal>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <utility>

namespace {

/// Signals are the main thread's; one that a connection raises is nobody's.
std::thread startedWithoutSignals(const std::function<void()> &work)
{
    sigset_t all = {};
    sigset_t before = {};
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    std::thread started(work);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return started;
}

} // namespace

HttpEngine::HttpEngine(HttpSettings settings, HttpQueue::Done done)
    : settings(std::move(settings)), done(std::move(done)), wakeUp(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    thread = startedWithoutSignals([this] { run(); });
}

HttpEngine::~HttpEngine()
{
    {
        const std::lock_guard lock(mutex);
        inbox.ends = true;
    }
    wake();
    thread.join();
}

void HttpEngine::wake() const
{
    constexpr quint64 one = 1;
    [[maybe_unused]] const ssize_t written = write(wakeUp.number(), &one, sizeof one);
}

void HttpEngine::add(quint64 number, const HttpRequest &request)
{
    {
        const std::lock_guard lock(mutex);
        inbox.requests.emplace_back(number, request);
    }
    wake();
}

void HttpEngine::forgetAll()
{
    std::unique_lock lock(mutex);
    inbox.requests.clear();
    const quint64 wanted = ++inbox.forgets;
    wake();
    forgotten.wait(lock, [&] { return forgetsDone >= wanted; });
}

void HttpEngine::run()
{
    HttpQueue queue(settings, done);
    for (;;) {
        Inbox taken;
        {
            const std::lock_guard lock(mutex);
            taken = {std::exchange(inbox.requests, {}), inbox.forgets, inbox.ends};
        }
        if (taken.ends) {
            return;
        }
        if (taken.forgets != forgetsDone) {
            queue.clear();
            const std::lock_guard lock(mutex);
            forgetsDone = taken.forgets;
            forgotten.notify_all();
        }
        for (const auto &[number, request] : taken.requests) {
            queue.add(number, request);
        }
        moved += queue.advance();
        taken.requests.clear();
        queue.wait(wakeUp.number());
        quint64 wakes = 0;
        [[maybe_unused]] const ssize_t count = read(wakeUp.number(), &wakes, sizeof wakes);
    }
}
