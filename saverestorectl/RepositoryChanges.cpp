#include "saverestorectl/RepositoryChanges.h"

#include <QHash>

RepositoryChanges RepositoryChanges::between(const QList<RepositoryItem> &before,
                                             const QList<RepositoryItem> &after)
{
    const auto key = [](const RepositoryItem &item) {
        return item.module + "\n" + item.kind + "\n" + item.item;
    };
    QHash<QString, const RepositoryItem *> old;
    for (const RepositoryItem &item : before) {
        old.insert(key(item), &item);
    }
    RepositoryChanges changes;
    for (const RepositoryItem &item : after) {
        const RepositoryItem *const was = old.take(key(item));
        if (was != nullptr && was->digest == item.digest) {
            ++changes.same;
        } else {
            changes.changed.append({item.module, item.item, was != nullptr ? was->digest : QString(),
                                    item.digest, item.size.value_or(0)});
        }
    }
    for (const RepositoryItem &item : before) {
        if (old.contains(key(item))) {
            changes.changed.append({item.module, item.item, item.digest, {}, item.size.value_or(0)});
        }
    }
    return changes;
}
