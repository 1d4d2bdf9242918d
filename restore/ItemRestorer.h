#pragma once

#include "restore/DatabaseRestore.h"
#include "restore/RestorePlanner.h"

#include <QHash>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

class RepositorySession;
class StagingArea;
class Waiter;

/// Puts single items back into a module's live data. One that cannot be put back stays as it was, and the log
/// says why.
class ItemRestorer
{
public:
    /// Both must outlive the object.
    ItemRestorer(RepositorySession &session, Waiter &waiter) : session(session), waiter(waiter) {}

    /// Do what can be done for databases while their modules run. Of those `ahead` nothing is told: one that
    /// fails can be tried again, and they give way when one of the others fails.
    void prepareDatabases(const QList<PlannedItem> &own, const QList<PlannedItem> &ahead);

    bool isPrepared(const PlannedItem &database) const
    {
        return databases.contains(database.item.livePath());
    }

    /// True when the database or directory was put back. A database has to be prepared, and its module to be
    /// paused.
    bool restore(const PlannedItem &planned);

    /// What becomes of an item: nothing when it was put back, else why it was not.
    using Told = std::function<void(const PlannedItem &, const std::optional<QString> &why)>;

    /// Why the item was not put back.
    QString fault(const PlannedItem &planned) const { return faults.value(planned.item.livePath()); }

    /// Remember the databases that were put back as a whole since the last call; their modules have to be
    /// paused still.
    void rememberDatabases(StagingArea &staging);

    /// Put plain files back, many at a time; `told` is told of each.
    void restoreFiles(const QList<PlannedItem> &files, const Told &told);

private:
    QStringList prepareAll(const QList<PlannedItem> &all);
    bool restoreDatabase(const PlannedItem &planned);
    bool restoreDirectory(const PlannedItem &planned);
    /// A plain file that is fetched beside its live one.
    struct Fetched
    {
        PlannedItem planned;
        std::unique_ptr<Replacement> replacement;
        RequestOutcome outcome;
    };
    using Refuse = std::function<void(const PlannedItem &, const QString &why)>;

    QList<PlannedItem> fetchBeside(const QList<PlannedItem> &files, const Refuse &refuse);
    QString faultOf(const Fetched &one);
    qsizetype batchSize() const;
    void putFetchedInPlace(const Told &told);
    bool isAcceptable(const PlannedItem &planned);
    bool keep(const QString &reason, const PlannedItem &planned);

    RepositorySession &session;
    Waiter &waiter;
    std::map<QString, std::unique_ptr<DatabaseRestore>> databases; ///< those prepared, by their paths
    QList<PlannedItem> restoredDatabases;                          ///< as a whole, and not remembered yet
    /// Plain files that were fetched beside their live ones.
    std::vector<std::pair<PlannedItem, std::unique_ptr<Replacement>>> fetched;
    QHash<QString, QString> faults; ///< by live path
    qint64 filesEver = 0;
    qint64 bytesEver = 0; ///< of these
};
