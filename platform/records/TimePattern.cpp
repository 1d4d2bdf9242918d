#include "platform/records/TimePattern.h"

#include <QDBusMetaType>

QDBusArgument &operator<<(QDBusArgument &argument, const TimePattern &record)
{
    argument.beginStructure();
    argument << record.seconds << record.minutes << record.hours << record.daysOfMonth << record.months
             << record.daysOfWeek;
    argument.endStructure();
    return argument;
}

const QDBusArgument &operator>>(const QDBusArgument &argument, TimePattern &record)
{
    argument.beginStructure();
    argument >> record.seconds >> record.minutes >> record.hours >> record.daysOfMonth >> record.months >>
        record.daysOfWeek;
    argument.endStructure();
    return argument;
}

void registerDBusTimePattern()
{
    qDBusRegisterMetaType<TimePattern>();
    qRegisterMetaType<TimePattern>("TimePattern");
}
