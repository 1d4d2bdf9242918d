#include "restorable/RestorableObject.h"

#include "restorable/RestorableDescription.h"

RestorableObject::RestorableObject(QString name, QString release, QString version, QString pid,
                                   const QString &descriptionPath, MissingData missing)
    : name(std::move(name)), pid(std::move(pid)), version(std::move(version)), release(std::move(release))
{
    RestorableDescription(*this, missing).read(descriptionPath);
}

bool RestorableObject::hasItems() const
{
    return !databases.isEmpty() || !files.isEmpty() || !missingDatabases.isEmpty();
}
