#pragma once

#include "restorable/RestorableObject.h"
#include "staging/Artefacts.h"
#include "staging/ContentState.h"
#include "staging/ModuleData.h"

#include <QHash>
#include <QString>

class RememberedDigests;
class Waiter;

/// Stages the databases of one module: a consistent copy while the module is paused; afterwards its checksum
/// line and, if it is wanted, the compressed SQL dump of that copy. What is not to be dumped and has not
/// changed is not copied.
class DatabaseStaging
{
public:
    /// All must outlive the object.
    DatabaseStaging(QString module, const Artefacts &artefacts, RememberedDigests &remembered,
                    Waiter &waiter);

    /// Copy the database file, and what its journal or write-ahead log still holds.
    void copy(const QString &database);

    /// The line of a database that has no file: it has no digest.
    ChecksumLine missingLine(const QString &database) const;

    /// Turn the copy into its line and its dump, if it is sound. When a dump fails it is removed, and the
    /// line has no digest.
    ChecksumLine stageCopy(const RestorableDatabase &database);

    /// Remember with which digest a database is saved that was just put back. The module must be stopped
    /// still, and goes on only when this says true.
    bool rememberRestored(const QString &database, const QString &digest);

private:
    /// What was found of a database when its module was paused.
    struct Found
    {
        ContentState state; ///< of one without side files
        QString digest;     ///< when no copy was needed for it
    };

    Found look(const QString &database);
    bool isAlone(const QString &file) const;
    bool copyWithSideFiles(const QString &file, const QString &target);
    QString digestOfCopy(const QString &copy);
    bool dump(const RestorableDatabase &database, const QString &copy);
    bool dumpSelections(const RestorableDatabase &database, const QString &copy, const QString &dumpPath);
    SavedItem itemOf(const QString &database) const;
    QString copyPath(const QString &database) const;

    QString module;
    ModuleData data;
    const Artefacts &artefacts;
    RememberedDigests &remembered;
    Waiter &waiter;
    QHash<QString, Found> found; ///< by database
};
