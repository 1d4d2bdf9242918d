#pragma once

#include "catalogue/Priorities.h"
#include "platform/core/WorkQueue.h"
#include "staging/Artefacts.h"
#include "staging/DatabaseStaging.h"
#include "staging/RememberedDigests.h"

#include <QHash>
#include <QString>
#include <QStringList>

#include <functional>
#include <map>

class KnownModules;
class RestorableFile;
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

    /// The bytes of the modules' files and directories of these priorities. From now on `staged` is told of
    /// those of each item that has been staged, in any thread.
    quint64 measureFiles(const QStringList &names, const Priorities &priorities,
                         const std::function<void(quint64)> &staged);

    /// The bytes of the modules' databases.
    qint64 sizeOfDatabases(const QStringList &names) const;

    /// Stage the files and directories of that priority.
    void stageFiles(const QStringList &names, RestorableOrder::RestorablePriority priority);

    /// Before the modules are paused: wait until there is room for copies of their databases beside those
    /// that are still being staged.
    void makeRoomFor(const QStringList &names);

    /// Make a consistent copy of each database; the modules have to be paused.
    void copyDatabasesIntoTemp(const QStringList &names);

    /// Begin to turn the copies into lines and dumps, beside. A copy that cannot be dumped has a line without
    /// a digest.
    void stageDatabases(const QStringList &names);

    /// Wait for the end of that; without it, there are no lines of databases.
    void finishDatabases();

    /// The lines of the modules staged so far.
    const LinesByModule &lines() const { return stagedLines; }

    /// Remember with which digest a database is saved that was just put back, its module stopped still: it
    /// goes on only when this says true.
    bool rememberRestored(const SavedItem &database, const QString &digest);

    /// The digests that need not be taken; its user begins and stores it.
    RememberedDigests &rememberedDigests() { return remembered; }

private:
    void noteStaged(const QString &module, const RestorableFile &item) const;

    const KnownModules &modules;
    Waiter &waiter;
    Artefacts artefacts;
    RememberedDigests remembered;
    std::map<QString, DatabaseStaging> copied; ///< by module, until the lines are there
    qint64 copiedBytes = 0;                    ///< of these
    QHash<QString, quint64> sizes;             ///< of files and directories, by module and path
    std::function<void(quint64)> fileStaged;
    WorkQueue queue; ///< goes first: it uses the others
    LinesByModule stagedLines;
};
