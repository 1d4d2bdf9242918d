#pragma once

#include "catalogue/ChecksumFile.h"
#include "restorable/RestorableObject.h"
#include "staging/DatabaseDump.h"
#include "staging/ModuleData.h"

#include <QString>

class Waiter;

/// Stages the databases of one module: a consistent copy with its checksum line while the module is paused,
/// the compressed SQL dump of that copy afterwards.
class DatabaseStaging
{
public:
    /// The lines are appended to `lines`, which must outlive the object.
    DatabaseStaging(QString module, ChecksumLines &lines, Waiter &waiter);

    /// Copy the database file with what its journal or write-ahead log still holds.
    void copy(const QString &database);

    /// Note a database that has no file: its line has no digest.
    void noteMissing(const QString &database);

    /// Turn the copy into its dump, if it is sound. A dump that fails is removed, and the digest of its line
    /// is taken away.
    void dump(const RestorableDatabase &database);

private:
    bool copyWithSideFiles(const QString &file, const QString &target);
    bool foldSideFiles(const QString &copy);
    bool dumpSelections(const RestorableDatabase &database, const QString &copy, const QString &dumpPath);
    SavedItem itemOf(const QString &database) const;
    QString copyPath(const QString &database) const;

    QString module;
    ModuleData data;
    ChecksumLines &lines;
    Waiter &waiter;
};
