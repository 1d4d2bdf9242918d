#pragma once

#include "restorable/RestorableObject.h"
#include "staging/OperationContext.h"
#include "staging/StagingArea.h"

#include <QString>
#include <QStringList>

#include <optional>

class RepositorySession;
struct RequestOutcome;
struct PreviousState;

/// One save, from the checks at its beginning to the report of its upload. Everything that belongs to the run
/// is in it.
class SaveOperation
{
public:
    explicit SaveOperation(const OperationContext &context);
    ~SaveOperation();

    SaveOperation(const SaveOperation &) = delete;
    SaveOperation &operator=(const SaveOperation &) = delete;

    /// Run the save. False when it was refused or broken off; when items could not be stored a pop-up says
    /// so, and it is still true.
    bool startSaveOnRepository();

private:
    bool isPossible();
    bool prepare();
    bool stage(const PreviousState &previous);
    bool stageVersionFiles() const;
    bool runPasses(const PreviousState &previous);
    bool startSaveOnRepositoryForPriority(RestorableObject::RestorablePriority priority);
    bool stageGroupDatabases(const QStringList &group, const QStringList &modules);
    void saveMigrationBinaries(const PreviousState &previous);
    bool isMigrationProgramNewer(const QString &module, const RequestOutcome &fetched);
    void postOnRepository(const PreviousState &previous);

    OperationContext context;
    std::unique_ptr<RepositorySession> session;
    StagingArea staging;
    QStringList migrationPrograms; ///< modules whose migration program the repository is to receive
};
