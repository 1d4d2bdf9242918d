#pragma once

#include <QThreadPool>

#include <functional>

class Waiter;

/// Work in threads beside, as many pieces at a time as there are processors, while its owner goes on. The
/// work must touch nothing that events can reach; what takes long asks the waiter whether it has to end.
class WorkQueue
{
public:
    WorkQueue() = default;
    /// Waits for all work, without serving events: `finish` comes before.
    ~WorkQueue() = default;
    WorkQueue(const WorkQueue &) = delete;
    WorkQueue &operator=(const WorkQueue &) = delete;

    void add(const std::function<void()> &work) { pool.start(work); }

    /// Wait for the end of all work with events served.
    void finish(Waiter &waiter);

private:
    QThreadPool pool;
};
