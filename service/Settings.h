#pragma once

#include "catalogue/Priorities.h"

#include <QString>

/// What the service's settings say. A plain value: every change gives another one.
struct Settings
{
    enum ScheduleType { Disabled = 0, Frequency = 1, Time = 2 };

    bool enabled = false;
    Priorities priorities;
    int schedule = 0; ///< a period in hours, or an hour of the day
    ScheduleType scheduleType = Disabled;

    /// 1 mandatory, 2 all, any other level none. A level does not enable without a repository.
    Settings withLevel(int level, bool hasRepository) const;
    /// Another repository was chosen, or none.
    Settings withRepository(bool hasRepository) const;
    Settings withPriorities(const Priorities &changed) const;
    Settings withSchedule(int hours) const;
    /// An unknown type changes nothing.
    Settings withScheduleType(int type) const;

    /// The settings as text for a person; `url` is the repository's.
    QString text(const QString &url) const;
};

/// The name of a level and of a schedule type, as they are logged; an unknown type has none.
QString levelName(int level);
QString scheduleTypeName(int type);
