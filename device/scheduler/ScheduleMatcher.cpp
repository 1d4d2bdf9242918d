#include "device/scheduler/ScheduleMatcher.h"

#include <algorithm>
#include <numeric>

namespace {

constexpr int daysToSearch = 9 * 366;

bool fits(const QList<int> &field, int value)
{
    return field.isEmpty() || field.contains(value);
}

bool dayFits(const TimePattern &pattern, QDate day)
{
    return fits(pattern.daysOfMonth, day.day()) && fits(pattern.months, day.month()) &&
           fits(pattern.daysOfWeek, day.dayOfWeek());
}

/// The values from 0 to `limit` - 1 that a field stands for, ascending.
QList<int> valuesOf(const QList<int> &field, int limit)
{
    QList<int> values;
    if (field.isEmpty()) {
        values.resize(limit);
        std::iota(values.begin(), values.end(), 0);
        return values;
    }
    for (const int value : field) {
        if (value >= 0 && value < limit && !values.contains(value)) {
            values.append(value);
        }
    }
    std::sort(values.begin(), values.end());
    return values;
}

QList<int> hoursOf(const TimePattern &pattern)
{
    QList<int> hours = pattern.hours;
    std::replace(hours.begin(), hours.end(), 24, 0);
    return valuesOf(hours, 24);
}

QList<int> secondsOf(const TimePattern &pattern)
{
    return pattern.seconds.isEmpty() ? QList<int>{0} : valuesOf(pattern.seconds, 60);
}

/// The times of day that a pattern stands for, ready to be searched.
class TimesOfDay
{
public:
    explicit TimesOfDay(const TimePattern &pattern)
        : hours(hoursOf(pattern)), minutes(valuesOf(pattern.minutes, 60)), seconds(secondsOf(pattern))
    {
    }

    bool isEmpty() const { return hours.isEmpty() || minutes.isEmpty() || seconds.isEmpty(); }

    /// The first local time of a day that is later than `after`.
    QDateTime firstOn(QDate day, const QDateTime &after) const
    {
        for (const int hour : hours) {
            if (QDateTime(day, QTime(hour, 59, 59)) <= after) {
                continue;
            }
            for (const int minute : minutes) {
                for (const int second : seconds) {
                    QDateTime time(day, QTime(hour, minute, second));
                    if (time.isValid() && time > after) {
                        return time;
                    }
                }
            }
        }
        return {};
    }

private:
    QList<int> hours;
    QList<int> minutes;
    QList<int> seconds;
};

} // namespace

bool matches(const TimePattern &pattern, const QDateTime &time)
{
    const QTime clock = time.time();
    return dayFits(pattern, time.date()) && hoursOf(pattern).contains(clock.hour()) &&
           fits(pattern.minutes, clock.minute()) && secondsOf(pattern).contains(clock.second());
}

QDateTime nextOccurrence(const TimePattern &pattern, const QDateTime &after)
{
    const QDateTime start = after.toLocalTime();
    const TimesOfDay times(pattern);
    if (times.isEmpty()) {
        return {};
    }
    for (int offset = 0; offset <= daysToSearch; ++offset) {
        const QDate day = start.date().addDays(offset);
        if (!dayFits(pattern, day)) {
            continue;
        }
        QDateTime time = times.firstOn(day, start);
        if (time.isValid()) {
            return time;
        }
    }
    return {};
}
