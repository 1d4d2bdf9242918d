#include "service/SaveSchedule.h"

std::optional<QList<int>> scheduledHours(int hour, bool frequency, int currentHour)
{
    if (!frequency) {
        return QList<int>{hour};
    }
    const int period = hour;
    if (period < 1) {
        return std::nullopt;
    }
    constexpr int lastHour = 24;
    const int first = currentHour + 1;
    QList<int> hours = {first};
    while (period <= lastHour - hours.last()) {
        hours << hours.last() + period;
    }
    for (int earlier = first; period <= earlier;) {
        earlier -= period;
        hours << earlier;
    }
    return hours;
}
