#include "catalogue/Priorities.h"

QString priorityName(int priority)
{
    if (priority == RestorableOrder::high) {
        return "high";
    }
    return priority == RestorableOrder::normal ? "normal" : "low";
}

QList<RestorableOrder::RestorablePriority> Priorities::included() const
{
    QList<RestorableOrder::RestorablePriority> list;
    if (high) {
        list << RestorableOrder::high;
    }
    if (normal) {
        list << RestorableOrder::normal;
    }
    if (low) {
        list << RestorableOrder::low;
    }
    return list;
}

QSet<QString> Priorities::names() const
{
    QSet<QString> names;
    for (const auto priority : included()) {
        names << priorityName(priority);
    }
    return names;
}
