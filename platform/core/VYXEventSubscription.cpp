#include "platform/core/VYXEventSubscription.h"

#include <QDBusArgument>

#include <utility>

VYXEventSubscription::VYXEventSubscription(QObject *receiver, std::function<void(const VYXEvent &)> handler)
    : QObject(receiver), handler(std::move(handler))
{
}

void VYXEventSubscription::received(const QDBusMessage &message)
{
    const QVariantList values = message.arguments();
    if (message.signature() != "a{sv}s" || values.size() != 2) {
        return;
    }
    handler(VYXEvent(message.member(), qdbus_cast<QVariantMap>(values.at(0)), values.at(1).toString()));
}
