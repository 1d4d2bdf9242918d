#pragma once

#include "restorable/RestorableObject.h"
#include "staging/Artefacts.h"
#include "staging/DatabaseDump.h"
#include "staging/ModuleData.h"

#include <QString>

class Waiter;

/// Stages the databases of one module: a consistent copy while the module is paused; afterwards its checksum
/// line and, if it is wanted, the compressed SQL dump of that copy.
class DatabaseStaging
{
public:
    /// The lines are appended to `lines`. All must outlive the object.
    DatabaseStaging(QString module, const Artefacts &artefacts, ChecksumLines &lines, Waiter &waiter);

    /// Copy the database file, and what its journal or write-ahead log still holds.
    void copy(const QString &database);

    /// Note a database that has no file: its line has no digest.
    void noteMissing(const QString &database);

    /// Turn the copy into its line and its dump, if it is sound. When a dump fails it is removed, and its
    /// line has no digest.
    void stageCopy(const RestorableDatabase &database);

private:
    bool copyWithSideFiles(const QString &file, const QString &target);
    QString digestOfCopy(const QString &copy);
    bool dump(const RestorableDatabase &database, const QString &copy);
    bool dumpSelections(const RestorableDatabase &database, const QString &copy, const QString &dumpPath);
    SavedItem itemOf(const QString &database) const;
    QString copyPath(const QString &database) const;

    QString module;
    ModuleData data;
    const Artefacts &artefacts;
    ChecksumLines &lines;
    Waiter &waiter;
};
