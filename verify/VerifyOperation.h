#pragma once

#include "staging/OperationContext.h"
#include "verify/StoredItems.h"

#include <QHash>
#include <QSet>
#include <QString>

#include <memory>

struct EntryCheck;

/// One check of what the repository holds: every entry that a checksum file promises is there, and with
/// `full` has the content that it should have; what nobody promises is left over. The report has the result.
///
/// Nothing is changed, nobody is paused. Entries are fetched ahead of their check as a restore does, and go
/// when they have been checked.
class VerifyOperation
{
public:
    VerifyOperation(const OperationContext &context, bool full);
    ~VerifyOperation();

    VerifyOperation(const VerifyOperation &) = delete;
    VerifyOperation &operator=(const VerifyOperation &) = delete;

    /// True when all was looked at that can be; false when it was refused or broken off.
    bool run();

    /// The items that cannot be relied on.
    const QSet<ItemIdentity> &damaged() const { return damagedItems; }

private:
    void reportState(const StoredItems &stored);
    void lookForEntries(QList<StoredItem> &items);
    void lookForControlFiles(const StoredItems &stored, const QMap<QString, QString> &lineFaults);
    QString faultOfLines(const StoredItems &stored, const QString &module) const;
    QMap<QString, QString> faultsOfLines(const StoredItems &stored) const;
    void dropUncertain(StoredItems &stored) const;
    void dropMissing(QList<StoredItem> &items);
    void checkContents(const QList<StoredItem> &items);
    void take(const EntryCheck &check);
    void reportLeftOver(const StoredItems &stored) const;
    void noteDamaged(const StoredItem &item, const QString &why);

    OperationContext context;
    bool full;
    std::unique_ptr<RepositorySession> session;
    QHash<QString, QString> missing; ///< why, by the entry
    QSet<ItemIdentity> damagedItems;
};
