#pragma once

#include "restorable/RestorableObject.h"
#include "staging/Artefacts.h"
#include "staging/ContentState.h"
#include "staging/DatabaseDump.h"
#include "staging/ModuleData.h"

#include <QHash>
#include <QString>

class RememberedDigests;
class Waiter;

/// Stages the databases of one module: a consistent copy while the module is paused; afterwards, in a thread
/// beside, its checksum line and, if it is wanted, the compressed SQL dump of that copy. What need not be
/// dumped is not copied when it has not changed, or is only to be compared and lies in one file.
class DatabaseStaging
{
public:
    /// All must outlive the object.
    DatabaseStaging(QString module, const Artefacts &artefacts, RememberedDigests &remembered,
                    Waiter &waiter);

    /// Copy the database file, and what its journal or write-ahead log still holds.
    void copy(const QString &database);

    /// For a thread beside: turn the copies into lines and dumps, if they are sound. When a dump fails it is
    /// removed, and the line has no digest; nor has that of a database which has no file.
    void stageCopies(const RestorableObject &object);
    ChecksumLine stageCopy(const RestorableDatabase &database);

    const ChecksumLines &lines() const { return stagedLines; }

    /// Remember with which digest a database is saved that was just put back. The module must be stopped
    /// still, and goes on only when this says true.
    bool rememberRestored(const QString &database, const QString &digest);

private:
    /// What was found of a database when its module was paused.
    struct Found
    {
        ContentState state;  ///< of one without side files
        QString digest;      ///< when no copy was needed for it
        bool copied = false; ///< otherwise the digest is that of the live file
    };

    Found look(const QString &database);
    QString digestOf(const QString &database, const Found &then);
    bool isAlone(const QString &file) const;
    bool copyWithSideFiles(const QString &file, const QString &target);
    QString digestOfCopy(const QString &copy) const;
    bool dump(const RestorableDatabase &database, const QString &copy, const QString &digest) const;
    DatabaseDump::Outcome dumpSelections(const RestorableDatabase &database, const QString &copy,
                                         const QString &dumpPath, const QString &digest) const;
    SavedItem itemOf(const QString &database) const;
    QString copyPath(const QString &database) const;

    QString module;
    ModuleData data;
    const Artefacts &artefacts;
    RememberedDigests &remembered;
    Waiter &waiter;
    QHash<QString, Found> found; ///< by database
    ChecksumLines stagedLines;
};
