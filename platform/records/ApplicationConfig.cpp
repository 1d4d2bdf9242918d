#include "platform/records/ApplicationConfig.h"

#include <QDBusMetaType>

#include <utility>

ApplicationConfig::ApplicationConfig(QString name, QString id, QString version, QString release,
                                     QString state)
    : name(std::move(name)), id(std::move(id)), version(std::move(version)), release(std::move(release)),
      state(std::move(state))
{
}

QDBusArgument &operator<<(QDBusArgument &argument, const ApplicationConfig &record)
{
    argument.beginStructure();
    argument << record.name << record.id << record.version << record.release << record.state;
    argument.endStructure();
    return argument;
}

const QDBusArgument &operator>>(const QDBusArgument &argument, ApplicationConfig &record)
{
    argument.beginStructure();
    argument >> record.name >> record.id >> record.version >> record.release >> record.state;
    argument.endStructure();
    return argument;
}

void registerDBusApplicationConfig()
{
    qDBusRegisterMetaType<ApplicationConfig>();
    qDBusRegisterMetaType<ListApplicationConfig>();
    qRegisterMetaType<ListApplicationConfig>("ListApplicationConfig");
}
