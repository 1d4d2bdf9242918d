#include "restorable/RestorableObject.h"

#include "platform/logger/VYXLogger.h"
#include "restorable/RestorableDescription.h"

RestorableObject::RestorableObject(QString name, QString release, QString version, QString pid)
    : name(std::move(name)), pid(std::move(pid)), version(std::move(version)), release(std::move(release))
{
}

RestorableObject::RestorableObject(QString moduleName, QString release, QString version, QString pid,
                                   const QString &descriptionPath, MissingData missing)
    : RestorableObject(std::move(moduleName), std::move(release), std::move(version), std::move(pid))
{
    logFaults(RestorableDescription(*this).read(descriptionPath), missing);
    for (const RestorableFile &file : std::as_const(files)) {
        logDebug(file.getKind() == DirectoryItem ? "Add dir %1 for module %2" : "Add file %1 for module %2",
                 file.getPath(), name);
    }
}

bool RestorableObject::hasItems() const
{
    return !databases.isEmpty() || !files.isEmpty() || !missingDatabases.isEmpty();
}
