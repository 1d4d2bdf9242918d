#pragma once

#include "catalogue/Priorities.h"
#include "catalogue/SavedEntries.h"

#include <QString>
#include <QStringList>

class KnownModules;
class RestorableObject;
class Waiter;

/// The staging directory of one operation: the artefacts of the modules' items, and the line of each item.
///
/// An item that yields no digest has a line without one. Lines are in the order in which they were staged.
class StagingArea
{
public:
    /// Both must outlive the area.
    StagingArea(const KnownModules &modules, Waiter &waiter) : modules(modules), waiter(waiter) {}

    /// Make the directory, for root alone, and empty it. False when it cannot be used.
    bool cleanSaveDirectory();

    /// Stage the files and directories of that priority; archives are made of zipped directories.
    void stageFiles(const QStringList &names, RestorableOrder::RestorablePriority priority);

    /// Stage a consistent copy and the line of each database; the modules have to be paused.
    void copyDatabasesIntoTemp(const QStringList &names);

    /// Turn the copies into dumps. A copy that cannot be dumped takes the digest of its line with it.
    void dumpDatabases(const QStringList &names);

    /// The lines of the modules staged so far.
    const LinesByModule &lines() const { return stagedLines; }

private:
    const KnownModules &modules;
    Waiter &waiter;
    LinesByModule stagedLines;
};
