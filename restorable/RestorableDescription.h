#pragma once

#include "restorable/DescriptionNotes.h"
#include "restorable/RestorableObject.h"

/// Reads a restorable.xml into a `RestorableObject` and tells what is not as it should be.
///
/// The root element may have any name; its children "databases", "files", "reset-to-factory" and
/// "reset-to-default" are handled in document order, any number of times. Everything unknown is passed over.
class RestorableDescription
{
public:
    /// The object has a name and no items yet.
    explicit RestorableDescription(RestorableObject &object) : object(object) {}

    /// The faults, in the order in which they were found. Nothing is logged.
    DescriptionFaults read(const QString &path);

private:
    void readSection(const QDomElement &section);
    void readDatabase(const QDomElement &element);
    void readFile(const QDomElement &element);
    void readDatabaseChildren(const QDomElement &element, RestorableDatabase &database,
                              QStringList &dependencies);
    void readDependency(const QDomElement &element, QStringList &dependencies);
    void readSelection(const QDomElement &element, RestorableDatabase &database);
    void readResetCommand(const QDomElement &element, SqlCommands &commands);
    bool acceptDatabase(const QDomElement &element, const QString &name);
    QString acceptItemPath(const QDomElement &element);
    RestorableObject::RestorablePriority priorityOf(const QDomElement &element);
    void lookForOverlaps();

    template <typename Handler>
    void forEachChild(const QDomElement &parent, const QString &name, const Handler &handle);
    QString dataPath(const QString &item) const;

    RestorableObject &object;
    DescriptionNotes notes;
};
