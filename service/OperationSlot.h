#pragma once

#include "platform/core/Waiter.h"

#include <QList>
#include <QObject>

#include <functional>

class Middleware;

/// The one place for a save, restore or reset: who finds it taken is refused.
class OperationSlot : public QObject
{
    Q_OBJECT

public:
    enum class Uses { Repository, Modules };

    /// The middleware must outlive the slot.
    explicit OperationSlot(Middleware &middleware) : middleware(middleware) {}

    /// Run an operation with a waiter of its own. False, and the user is told, when another one is running.
    bool run(Uses uses, const std::function<void(Waiter &)> &operation);

    /// True while an operation runs that uses the repository: neither saving nor restoring is possible.
    bool usesRepository() const { return running != nullptr && uses == Uses::Repository; }

    /// End the operation that uses the repository, if one runs; it ends when its waits have ended.
    void repositoryChanged();

    /// Do something at once, or soon after the running operation has ended.
    void whenFree(const std::function<void()> &task);

Q_SIGNALS:
    /// `usesRepository` has changed.
    void usesRepositoryChanged();

private:
    void setRunning(Waiter *waiter, Uses operationUses);

    Middleware &middleware;
    Waiter *running = nullptr;
    Uses uses = Uses::Modules;
    QList<std::function<void()>> postponed;
};
