#pragma once

#include "catalogue/SavedItem.h"
#include "restorable/RestorableObject.h"
#include "staging/OperationContext.h"
#include "staging/StagingArea.h"

#include <QSet>
#include <QString>
#include <QStringList>

#include <optional>

class RepositorySession;
struct RequestOutcome;
struct EntryFailure;
struct SavedState;

/// One save, from the checks at its beginning to the report of its upload. Everything that belongs to the run
/// is in it.
class SaveOperation
{
public:
    explicit SaveOperation(const OperationContext &context);
    ~SaveOperation();

    SaveOperation(const SaveOperation &) = delete;
    SaveOperation &operator=(const SaveOperation &) = delete;

    /// Send again what is damaged in the repository, and what nothing is known of.
    void repair(const QSet<ItemIdentity> &items)
    {
        damaged = items;
        repairs = true;
    }
    /// What was damaged and is no more.
    const QSet<ItemIdentity> &repaired() const { return repairedItems; }

    /// Run the save. False when it was refused or broken off; when items could not be stored a pop-up says
    /// so, and it is still true.
    bool startSaveOnRepository();

private:
    bool isPossible();
    bool prepare();
    bool stage(const SavedState &previous);
    bool stageVersionFiles() const;
    bool runPasses(const SavedState &previous);
    bool startSaveOnRepositoryForPriority(RestorableObject::RestorablePriority priority, quint64 fileBytes);
    bool stageGroupDatabases(const QStringList &group, const QStringList &modules);
    void widenToGroups();
    QSet<QString> renewedModules() const;
    bool isConcerned(const ItemIdentity &item, const SavedState &previous) const;
    void saveMigrationBinaries(const SavedState &previous);
    bool isMigrationProgramNewer(const QString &module, const RequestOutcome &fetched);
    void postOnRepository(const SavedState &previous);
    void reportFailures(const QList<EntryFailure> &failures, bool usable) const;

    OperationContext context;
    std::unique_ptr<RepositorySession> session;
    StagingArea staging;
    QSet<ItemIdentity> damaged;
    QSet<ItemIdentity> repairedItems;
    bool repairs = false;
    QStringList migrationPrograms; ///< modules whose migration program the repository is to receive
};
