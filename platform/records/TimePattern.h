#pragma once

#include <QDBusArgument>
#include <QList>
#include <QMetaType>

/// The times at which the Scheduler runs a task. On the wire: (aiaiaiaiaiai).
///
/// A time matches when each of its fields is in the list of that field; an empty list matches any value,
/// except that empty seconds stand for second 0. Hour 24 is midnight.
struct TimePattern
{
    QList<int> seconds;
    QList<int> minutes;
    QList<int> hours;
    QList<int> daysOfMonth;
    QList<int> months;
    QList<int> daysOfWeek; ///< 1 is Monday, 7 is Sunday

    friend bool operator==(const TimePattern &left, const TimePattern &right) = default;
};

QDBusArgument &operator<<(QDBusArgument &argument, const TimePattern &record);
const QDBusArgument &operator>>(const QDBusArgument &argument, TimePattern &record);

Q_DECLARE_METATYPE(TimePattern)

/// Make the record known to the bus. Calling it again does nothing.
void registerDBusTimePattern();
