#pragma once

#include "platform/Descriptor.h"
#include "repository/HttpQueue.h"

#include <QList>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

/// The thread in which requests to one server are carried out; its connections live as long.
class HttpEngine
{
public:
    /// `done` is called in the engine's thread, once for each request that is not forgotten. libcurl must
    /// have been loaded without a fault.
    HttpEngine(HttpSettings settings, HttpQueue::Done done);
    /// Forgets everything.
    ~HttpEngine();

    HttpEngine(const HttpEngine &) = delete;
    HttpEngine &operator=(const HttpEngine &) = delete;

    /// Carry out a request; the number is not 0.
    void add(quint64 number, const HttpRequest &request);

    /// Forget everything that is waiting or under way. Its files are nobody's when this returns; a `done` may
    /// have been called just before.
    void forgetAll();

    /// A number that grows with what moves.
    quint64 progress() const { return moved; }

private:
    struct Inbox
    {
        std::deque<std::pair<quint64, HttpRequest>> requests;
        quint64 forgets = 0; ///< how often everything was to be forgotten
        bool ends = false;
    };

    void run();
    void wake() const;

    const HttpSettings settings;
    HttpQueue::Done done;
    Descriptor wakeUp;
    std::mutex mutex;
    std::condition_variable forgotten;
    Inbox inbox;
    quint64 forgetsDone = 0;
    std::atomic<quint64> moved = 0;
    std::thread thread;
};
