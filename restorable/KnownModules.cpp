#include "restorable/KnownModules.h"

#include "catalogue/ItemNames.h"
#include "catalogue/ModulesList.h"
#include "platform/core/Middleware.h"
#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"

#include <QFileInfo>

bool KnownModules::isInstalled(const QString &module)
{
    return QFileInfo(DevicePaths::restorableDescription(module)).isFile();
}

RemoteCallResult KnownModules::refreshModulesList(Waiter &waiter)
{
    RemoteCallResult result = middleware.callModule("ApplicationManager", "getModulesList", {}, waiter);
    if (result.failed()) {
        return result;
    }
    const auto answer = qdbus_cast<ListApplicationConfig>(result.value);
    if (answer.size() > mostModules) {
        return {RemoteCallResult::ErrorReply, {}, QString("it has more than %1 modules").arg(mostModules)};
    }
    modules = answer;
    return result;
}

bool KnownModules::parseRestorableConfigFiles(Waiter &waiter, MissingData missing)
{
    logDebug("Parse restorable config files");
    const RemoteCallResult result = refreshModulesList(waiter);
    if (result.failed()) {
        logError("Error in parseRestorableConfigFiles: %1", result.error);
        restorableObjects.clear();
        return false;
    }
    describeModules(missing);
    return true;
}

void KnownModules::describeModules(MissingData missing)
{
    restorableObjects.clear();
    for (const ApplicationConfig &module : std::as_const(modules)) {
        const QString name = module.getName();
        if (!ItemNames::isModuleName(name)) {
            logError("Module '%1' is left out: it has no usable name", name);
            continue;
        }
        if (!isInstalled(name)) {
            continue;
        }
        if (module.getID() == "0") {
            logWarning("Module %1 seems not to be started: pid= 0", name);
            continue;
        }
        logDebug("Found restorable config file for module : %1 (PID %2)", name, module.getID());
        restorableObjects << RestorableObject(name, module.getRelease(), module.getVersion(), module.getID(),
                                              DevicePaths::restorableDescription(name), missing);
    }
}

void KnownModules::computeSaveGroups()
{
    saveGroups = computeGroups(restorableObjects);
    int number = 0;
    for (const QStringList &group : std::as_const(saveGroups)) {
        logDebug("Save group #%1: %2", ++number, group.join(' '));
    }
}

/// Modules that have come since the groups were made may depend on others: all groups are made anew.
void KnownModules::completeSaveGroups()
{
    if (!haveGroups(restorableObjects, saveGroups)) {
        computeSaveGroups();
    }
}

const RestorableObject *KnownModules::findObject(const QString &module) const
{
    for (const RestorableObject &object : restorableObjects) {
        if (object.getName() == module) {
            return &object;
        }
    }
    return nullptr;
}

QString KnownModules::processIdOf(const QString &module) const
{
    if (const RestorableObject *object = findObject(module)) {
        return object->getPid();
    }
    for (const ApplicationConfig &candidate : modules) {
        if (candidate.getName() == module) {
            return candidate.getID();
        }
    }
    return {};
}

QList<std::pair<QString, QString>> KnownModules::processesOf(const QStringList &names) const
{
    QList<std::pair<QString, QString>> processes;
    for (const QString &name : names) {
        processes.append({name, processIdOf(name)});
    }
    return processes;
}
