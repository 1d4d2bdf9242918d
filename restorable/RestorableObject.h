#pragma once

#include "restorable/DescriptionFault.h"
#include "restorable/RestorableItem.h"

#include <QList>
#include <QString>
#include <QStringList>

/// What one running module has saved, restored and reset, as its restorable.xml describes it. A plain value.
class RestorableObject
{
public:
    using RestorablePriority = RestorableOrder::RestorablePriority;
    static constexpr RestorablePriority high = RestorableOrder::high;
    static constexpr RestorablePriority normal = RestorableOrder::normal;
    static constexpr RestorablePriority low = RestorableOrder::low;

    /// A module without items.
    explicit RestorableObject(QString name, QString release = {}, QString version = {}, QString pid = {});

    /// Reads and parses the file at once. A file that cannot be read or is no XML gives an object without
    /// items; what the description asks for and cannot have is logged and left out.
    RestorableObject(QString name, QString release, QString version, QString pid,
                     const QString &descriptionPath, MissingData missing = MissingData::Reported);

    QString getName() const { return name; }
    /// The module's process id as text.
    QString getPid() const { return pid; }
    QString getVersion() const { return version; }
    QString getRelease() const { return release; }
    /// The content of the module's version file.
    QByteArray versionLine() const { return (release + "::" + version + "\n").toUtf8(); }
    /// Modules that must be paused together with this one.
    QStringList getDependencies() const { return dependencies; }
    QList<RestorableFile> getFiles() const { return files; }
    QList<RestorableDatabase> getDatabases() const { return databases; }
    /// Databases that the description lists and that have no file at present. They are not staged, but their
    /// saved copies stay, and a restore brings them back.
    QStringList getMissingDatabases() const { return missingDatabases; }
    SqlCommands getResetToFactoryCommands() const { return resetToFactoryCommands; }
    SqlCommands getResetToDefaultCommands() const { return resetToDefaultCommands; }

    /// True when there is anything to save or to restore.
    bool hasItems() const;

private:
    friend class RestorableDescription;

    QString name;
    QString pid;
    QString version;
    QString release;
    QStringList dependencies;
    QList<RestorableFile> files;
    QList<RestorableDatabase> databases;
    QStringList missingDatabases;
    SqlCommands resetToFactoryCommands;
    SqlCommands resetToDefaultCommands;
};
