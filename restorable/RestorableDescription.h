#pragma once

#include "restorable/RestorableObject.h"

class QDomElement;

/// Reads a restorable.xml into a `RestorableObject`.
///
/// The root element may have any name; its children "databases", "files", "reset-to-factory" and
/// "reset-to-default" are handled in document order, any number of times. Everything unknown is ignored.
class RestorableDescription
{
public:
    RestorableDescription(RestorableObject &object, MissingData missing) : object(object), missing(missing) {}

    void read(const QString &path);

private:
    void readDatabase(const QDomElement &element);
    void readFile(const QDomElement &element);
    void readDatabaseChildren(const QDomElement &element, RestorableDatabase &database);
    bool acceptDatabaseName(const QString &name) const;
    QString acceptItemPath(const QString &text) const;
    QString dataPath(const QString &item) const;

    RestorableObject &object;
    const MissingData missing;
};
