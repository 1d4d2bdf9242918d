#include "platform/records/Capability.h"

#include <QDBusMetaType>

#include <utility>

Capability::Capability(QString name, State state) : name(std::move(name)), state(state) {}

QDBusArgument &operator<<(QDBusArgument &argument, const Capability &record)
{
    argument.beginStructure();
    argument << record.name << record.state;
    argument.endStructure();
    return argument;
}

const QDBusArgument &operator>>(const QDBusArgument &argument, Capability &record)
{
    argument.beginStructure();
    argument >> record.name >> record.state;
    argument.endStructure();
    return argument;
}

void registerDBusCapability()
{
    qDBusRegisterMetaType<Capability>();
    qDBusRegisterMetaType<MapQStringCapability>();
    qRegisterMetaType<Capability>("Capability");
    qRegisterMetaType<MapQStringCapability>("MapQStringCapability");
}
