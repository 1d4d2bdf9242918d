#pragma once

#include "platform/core/VYXEvent.h"

#include <QDBusMessage>
#include <QObject>

#include <functional>

/// Turns the bus signal of an event into a `VYXEvent` and hands it on. Lives as long as its parent, the
/// receiver.
class VYXEventSubscription : public QObject
{
    Q_OBJECT

public:
    VYXEventSubscription(QObject *receiver, std::function<void(const VYXEvent &)> handler);

public Q_SLOTS:
    void received(const QDBusMessage &message);

private:
    std::function<void(const VYXEvent &)> handler;
};
