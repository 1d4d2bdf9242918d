#include "service/Settings.h"

namespace {

constexpr int mandatory = 1;
constexpr int all = 2;

} // namespace

Settings Settings::withLevel(int level, bool hasRepository) const
{
    Settings changed = *this;
    const bool some = level == mandatory || level == all;
    changed.enabled = some && (enabled || hasRepository);
    changed.priorities = {.high = some, .normal = level == all, .low = level == all};
    return changed;
}

Settings Settings::withRepository(bool hasRepository) const
{
    Settings changed = *this;
    changed.enabled = hasRepository && (enabled || priorities.any());
    return changed;
}

Settings Settings::withPriorities(const Priorities &newPriorities) const
{
    Settings changed = *this;
    changed.priorities = newPriorities;
    return changed;
}

Settings Settings::withSchedule(int hours) const
{
    Settings changed = *this;
    changed.schedule = hours;
    return changed;
}

Settings Settings::withScheduleType(int type) const
{
    Settings changed = *this;
    if (type == Disabled || type == Frequency || type == Time) {
        changed.scheduleType = static_cast<ScheduleType>(type);
    }
    return changed;
}

QString Settings::text(const QString &url) const
{
    QString text = QString("Save/Restore enabled: %1\n").arg(enabled ? "true" : "false");
    if (priorities.high) {
        const bool everything = priorities.normal && priorities.low;
        text += QString("Save/Restore level: %1\n").arg(everything ? "all" : "mandatory");
    }
    text += QString("Save/Restore url: %1\n").arg(url);
    text += QString("Schedule hour: %1\n").arg(schedule);
    switch (scheduleType) {
    case Disabled:
        return text + "Schedule type: Disabled\n";
    case Frequency:
        return text + "Schedule type: Frequency\n";
    case Time:
        return text + "Schedule type: Time\n";
    }
    return text;
}

QString levelName(int level)
{
    if (level == mandatory) {
        return "mandatory";
    }
    return level == all ? "all" : "none";
}

QString scheduleTypeName(int type)
{
    switch (type) {
    case Settings::Disabled:
        return "cancel scheduled task";
    case Settings::Frequency:
        return "frequency";
    case Settings::Time:
        return "time";
    default:
        return {};
    }
}
