#include "platform/core/VYXEvent.h"

#include <utility>

VYXEvent::VYXEvent(QString name, QVariantMap arguments, QString text)
    : name(std::move(name)), arguments(std::move(arguments)), text(std::move(text))
{
}

void VYXEvent::addArgument(const QVariant &value, const QString &key, bool replace)
{
    if (replace || !arguments.contains(key)) {
        arguments.insert(key, value);
    }
}
