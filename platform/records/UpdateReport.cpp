#include "platform/records/UpdateReport.h"

#include <QDBusMetaType>

QDBusArgument &operator<<(QDBusArgument &argument, const UpdateReport &record)
{
    argument.beginStructure();
    argument << record.valid << record.flag2 << record.flag3 << record.requiresReboot << record.message
             << record.texts6;
    argument.endStructure();
    return argument;
}

const QDBusArgument &operator>>(const QDBusArgument &argument, UpdateReport &record)
{
    argument.beginStructure();
    argument >> record.valid >> record.flag2 >> record.flag3 >> record.requiresReboot >> record.message >>
        record.texts6;
    argument.endStructure();
    return argument;
}

void registerDBusUpdateReport()
{
    qDBusRegisterMetaType<UpdateReport>();
    qRegisterMetaType<UpdateReport>("UpdateReport");
}
