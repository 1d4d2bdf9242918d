#pragma once

#include "catalogue/Priorities.h"
#include "staging/Artefacts.h"
#include "staging/DatabaseStaging.h"
#include "staging/RememberedDigests.h"

#include <QString>
#include <QStringList>

#include <map>

class KnownModules;
class RestorableObject;
class Waiter;

/// The staging directory of one operation: the line of each of the modules' items, and the artefacts that are
/// wanted.
///
/// An item that yields no digest has a line without one. Lines are in the order in which they were staged.
class StagingArea
{
public:
    /// Both must outlive the area.
    StagingArea(const KnownModules &modules, Waiter &waiter) : modules(modules), waiter(waiter) {}

    /// Make the directory, for root alone, and empty it. False when it cannot be used.
    bool cleanSaveDirectory();

    /// From now on make the archives and dumps that are not saved already. Without this call none is made.
    void makeArtefacts(const LinesByModule &saved) { artefacts = Artefacts(saved); }

    /// Stage the files and directories of that priority.
    void stageFiles(const QStringList &names, RestorableOrder::RestorablePriority priority);

    /// Make a consistent copy of each database; the modules have to be paused.
    void copyDatabasesIntoTemp(const QStringList &names);

    /// Turn the copies into lines and dumps. A copy that cannot be dumped has a line without a digest.
    void stageDatabases(const QStringList &names);

    /// The lines of the modules staged so far.
    const LinesByModule &lines() const { return stagedLines; }

    /// Remember with which digest a database is saved that was just put back, its module stopped still: it
    /// goes on only when this says true.
    bool rememberRestored(const SavedItem &database, const QString &digest);

    /// The digests that need not be taken; its user begins and stores it.
    RememberedDigests &rememberedDigests() { return remembered; }

private:
    const KnownModules &modules;
    Waiter &waiter;
    Artefacts artefacts;
    RememberedDigests remembered;
    std::map<QString, DatabaseStaging> copied; ///< by module, between copying and staging
    LinesByModule stagedLines;
};
