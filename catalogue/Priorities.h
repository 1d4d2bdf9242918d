#pragma once

#include <QList>
#include <QSet>
#include <QString>

/// The order in which data are saved and restored.
struct RestorableOrder
{
    enum RestorablePriority { high = 0, normal = 1, low = 2 };
};

/// "high", "normal" or, for any other value, "low".
QString priorityName(int priority);

/// Which priorities a save or a restore includes. A plain value.
struct Priorities
{
    bool high = true;
    bool normal = true;
    bool low = true;

    bool any() const { return high || normal || low; }
    /// Those that are included, in their order.
    QList<RestorableOrder::RestorablePriority> included() const;
    QSet<QString> names() const;

    friend bool operator==(const Priorities &left, const Priorities &right) = default;
};
