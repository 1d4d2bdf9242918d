#pragma once

#include "catalogue/SavedItem.h"
#include "outcome/OperationSummary.h"

#include <QMap>
#include <QSet>
#include <QString>

#include <optional>

/// The summaries of the last operations, and what the last full verify found damaged; kept on the disk, which
/// an outcome needs to survive a restart of the service. A file that is not in order counts as none.
class LastOperations
{
public:
    /// Read what an earlier process has left.
    void load();

    std::optional<OperationSummary> last(const QString &operation) const;

    /// When the last one that succeeded began, in seconds since the epoch; 0 when none is known.
    quint64 lastSuccess(const QString &operation) const { return successes.value(operation); }

    /// Keep the summary of an operation that has ended.
    void keep(const OperationSummary &summary);

    /// Keep what a full verify of that repository found damaged, for `keep` to write, here and below.
    void setDamaged(const QString &repository, const QSet<ItemIdentity> &items);
    /// What another verify has found besides.
    void addDamaged(const QString &repository, const QSet<ItemIdentity> &items);
    /// These are damaged no more.
    void noteRepaired(const QString &repository, const QSet<ItemIdentity> &items);
    /// What is damaged in that repository, as far as it is known.
    QSet<ItemIdentity> damaged(const QString &repository) const;

private:
    void store() const;

    QMap<QString, OperationSummary> summaries; ///< by operation, here and below
    QMap<QString, quint64> successes;
    QString damagedRepository;
    QSet<ItemIdentity> damagedItems;
};
