#include "restorable/SaveGroups.h"

#include "platform/logger/VYXLogger.h"

#include <algorithm>

namespace {

bool shareName(const QStringList &left, const QStringList &right)
{
    return std::any_of(right.cbegin(), right.cend(),
                       [&](const QString &name) { return left.contains(name); });
}

/// One round of merging into the group at `index`. What the round compares with is that group as it was at
/// the start of the round; a group that moves into the place of a merged one is not looked at, and after a
/// merge of an earlier group the index stands for the next group. An index that left the list ends the round.
void mergeInto(SaveGroups &groups, qsizetype index)
{
    const QStringList reference = groups.at(index);
    for (qsizetype other = 0; other < groups.size(); ++other) {
        if (other == index || !shareName(reference, groups.at(other))) {
            continue;
        }
        if (index >= groups.size()) {
            return;
        }
        groups[index] += groups.at(other);
        groups.removeAt(other);
    }
}

QStringList groupOf(const RestorableObject &object)
{
    return QStringList(object.getName()) + object.getDependencies();
}

} // namespace

SaveGroups computeGroups(const QList<RestorableObject> &objects)
{
    SaveGroups groups;
    for (const RestorableObject &object : objects) {
        if (!object.hasItems()) {
            logDebug("Module %1 has nothing to save!", object.getName());
            continue;
        }
        groups << groupOf(object);
    }
    for (qsizetype index = 0; index < groups.size(); ++index) {
        mergeInto(groups, index);
    }
    for (QStringList &group : groups) {
        group.removeDuplicates();
    }
    return groups;
}

bool haveGroups(const QList<RestorableObject> &objects, const SaveGroups &groups)
{
    return std::all_of(objects.cbegin(), objects.cend(), [&](const RestorableObject &object) {
        return !object.hasItems() ||
               std::any_of(groups.cbegin(), groups.cend(),
                           [&](const QStringList &group) { return group.contains(object.getName()); });
    });
}
