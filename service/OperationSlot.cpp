#include "service/OperationSlot.h"

#include "platform/core/Middleware.h"
#include "platform/logger/VYXLogger.h"

#include <utility>

bool OperationSlot::run(Uses operationUses, const std::function<void(Waiter &)> &operation)
{
    if (running != nullptr) {
        const QString text = "Another save, restore or reset is running: abort.";
        logWarning("%1", text);
        middleware.showFailure(text);
        return false;
    }
    Waiter waiter;
    setRunning(&waiter, operationUses);
    operation(waiter);
    setRunning(nullptr, operationUses);
    for (const std::function<void()> &task : std::exchange(postponed, {})) {
        QMetaObject::invokeMethod(
            this, [this, task] { whenFree(task); }, Qt::QueuedConnection);
    }
    return true;
}

void OperationSlot::setRunning(Waiter *waiter, Uses operationUses)
{
    running = waiter;
    uses = operationUses;
    if (uses == Uses::Repository) {
        Q_EMIT usesRepositoryChanged();
    }
}

void OperationSlot::repositoryChanged()
{
    if (usesRepository()) {
        running->end(Waiter::End::RepositoryChanged);
    }
}

void OperationSlot::whenFree(const std::function<void()> &task)
{
    if (running == nullptr) {
        task();
    } else {
        postponed << task;
    }
}
