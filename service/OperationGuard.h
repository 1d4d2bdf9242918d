#pragma once

/// Holds the one place for a save, restore or reset as long as it lives. Who finds it taken does not get it.
class OperationGuard
{
public:
    explicit OperationGuard(bool &running) : running(running), holder(!running) { running = true; }
    ~OperationGuard()
    {
        if (holder) {
            running = false;
        }
    }

    OperationGuard(const OperationGuard &) = delete;
    OperationGuard &operator=(const OperationGuard &) = delete;

    bool acquired() const { return holder; }

private:
    bool &running;
    bool holder;
};
