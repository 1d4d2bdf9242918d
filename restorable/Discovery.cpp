#include "catalogue/ItemNames.h"
#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"
#include "restorable/RestorableListing.h"
#include "service/VYXSaveRestore.h"

#include <QFileInfo>

bool VYXSaveRestore::parseRestorableConfigFiles()
{
    logDebug("Parse restorable config files");
    restorableObjects.clear();
    const RemoteCallResult result = callModule("ApplicationManager", "getModulesList", {}, waiter);
    if (result.failed()) {
        logError("Error in parseRestorableConfigFiles: %1", result.error);
        return false;
    }
    modulesList = qdbus_cast<ListApplicationConfig>(result.value);
    describeModules();
    return true;
}

void VYXSaveRestore::describeModules()
{
    for (const ApplicationConfig &module : std::as_const(modulesList)) {
        const QString name = module.getName();
        if (!ItemNames::isModuleName(name)) {
            logError("Module '%1' is left out: it has no usable name", name);
            continue;
        }
        const QString description = DevicePaths::restorableDescription(name);
        if (!QFileInfo(description).isFile()) {
            continue;
        }
        if (module.getID() == "0") {
            logWarning("Module %1 seems not to be started: pid= 0", name);
            continue;
        }
        logInfo("Found restorable config file for module : %1 (PID %2)", name, module.getID());
        restorableObjects << RestorableObject(name, module.getRelease(), module.getVersion(), module.getID(),
                                              description);
    }
}

QString VYXSaveRestore::printRestorableFiles()
{
    return restorableListing(restorableObjects);
}

const RestorableObject *VYXSaveRestore::findObject(const QString &module) const
{
    for (const RestorableObject &object : restorableObjects) {
        if (object.getName() == module) {
            return &object;
        }
    }
    return nullptr;
}

QString VYXSaveRestore::processIdOf(const QString &module) const
{
    if (const RestorableObject *object = findObject(module)) {
        return object->getPid();
    }
    for (const ApplicationConfig &candidate : modulesList) {
        if (candidate.getName() == module) {
            return candidate.getID();
        }
    }
    return {};
}
