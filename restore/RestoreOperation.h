#pragma once

#include "restorable/RestorableObject.h"
#include "restore/RestorePlanner.h"
#include "staging/OperationContext.h"
#include "staging/StagingArea.h"

#include <QSet>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <optional>

class FetchAhead;
class ItemRestorer;
class RepositorySession;

/// One restore, from the checks at its beginning to the event at its end. Everything that belongs to the run
/// is in it.
class RestoreOperation
{
public:
    explicit RestoreOperation(const OperationContext &context);
    ~RestoreOperation();

    RestoreOperation(const RestoreOperation &) = delete;
    RestoreOperation &operator=(const RestoreOperation &) = delete;

    /// Run the restore; what came of it is told by the report, the log, pop-ups and the event
    /// "restore_finished". When nothing is to be changed, the report and the preview tell what a restore
    /// would do.
    void startRestoreFromRepository();

    const PreviewList &preview() const { return previewed; }

private:
    bool isPossible();
    bool prepare();
    void takePlan(const RestorePlanner &planner);
    void checkEntries();
    void checkDump(const PlannedItem &planned, PreviewedItem &item);
    void reportPreview() const;
    void beginRestoring() const;
    void endRestoring();
    void reportDone(const PlannedItem &planned, const std::optional<QString> &why);
    QList<RestorableObject::RestorablePriority> priorities() const;
    QList<PlannedItem> itemsToFetch();
    void runPasses();
    void startRestoreFromRepositoryForPriority(RestorableObject::RestorablePriority priority);
    void prepareDatabases(qsizetype group, const QSet<QString> &done);
    void restoreGroup(const QStringList &group, const QStringList &modules,
                      RestorableObject::RestorablePriority priority);
    void restoreDatabases(const QStringList &group, const QStringList &modules);
    void forEachItem(const QStringList &modules, const QString &priorityName, RestorableItemKind kind,
                     const std::function<void(const PlannedItem &)> &step);
    void restoreItems(const QStringList &modules, const QString &priorityName, RestorableItemKind kind);
    QList<Migration> checkVersions() const;
    void startMigrations();
    void finish();

    OperationContext context;
    std::unique_ptr<RepositorySession> session;
    std::unique_ptr<FetchAhead> fetcher;
    std::unique_ptr<ItemRestorer> restorer;
    StagingArea staging;
    RestorePlan plan;
    PreviewList previewed;
    QSet<QString> triedAhead;    ///< live paths of databases that were prepared before their group's turn
    QSet<QString> failedModules; ///< modules with an item that could not be put back
    int failedItems = 0;
};
