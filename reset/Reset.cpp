#include "platform/core/VYXApplication.h"
#include "platform/logger/VYXLogger.h"
#include "reset/ResetDatabase.h"
#include "service/OperationGuard.h"
#include "service/VYXSaveRestore.h"

bool VYXSaveRestore::resetToDefault()
{
    const OperationGuard guard(operationRunning);
    if (refuseSecondOperation(guard.acquired())) {
        return false;
    }
    resetNeedsReboot = false;
    runAllResetCommands("Reset to default for module: %1", &RestorableObject::getResetToDefaultCommands);
    resetModules.clear();
    refreshListOfModulesToReset();
    for (const ApplicationConfig &module : knownModules.modulesList()) {
        if (module.getState() != "STOPPED") {
            resetModules.insert(module.getName(), false);
        }
    }
    if (requestResets("reset_data_default", "reset_default_done", limits.defaultReset)) {
        notifyEvent(VYXEvent("reset_data_default_complete"));
    }
    return resetNeedsReboot;
}

void VYXSaveRestore::resetToFactory()
{
    const OperationGuard guard(operationRunning);
    if (refuseSecondOperation(guard.acquired())) {
        return;
    }
    runAllResetCommands("Reset to factory for module: %1", &RestorableObject::getResetToFactoryCommands);
    resetModules.clear();
    for (const ApplicationConfig &module : knownModules.modulesList()) {
        resetModules.insert(module.getName(), false);
    }
    if (requestResets("reset_data_factory", "reset_factory_done", limits.factoryReset)) {
        asyncRemoteCall("ApplicationManager", "stopAll", {});
    }
}

void VYXSaveRestore::runAllResetCommands(const char *announcement,
                                         SqlCommands (RestorableObject::*commands)() const)
{
    // Nothing is known after a start without modules, and no description after a save that found none.
    if (knownModules.modulesList().isEmpty()) {
        refreshListOfModulesToReset();
    }
    if (knownModules.objects().isEmpty()) {
        knownModules.describeModules();
    }
    for (const RestorableObject &object : knownModules.objects()) {
        logDebug(announcement, object.getName());
        runResetCommands(object.getName(), (object.*commands)());
    }
}

void VYXSaveRestore::runResetCommands(const QString &module, const SqlCommands &commands)
{
    ResetDatabase database;
    QString current;
    for (const auto &[name, sql] : commands) {
        if (VYXApplication::isEnding()) {
            return;
        }
        if (name != current) {
            current = name;
            if (!database.open(module, name)) {
                logError("Cannot access to database %1.data", name);
                continue;
            }
            logError("Open database %1.data", name);
        }
        logDebug("SQL command for db '%1': '%2'", name, sql);
        const QString error = database.execute(sql);
        if (!error.isEmpty()) {
            logError("SQL command for db '%1' failed: %2", name, error);
        }
    }
}

bool VYXSaveRestore::requestResets(const QString &request, const QString &report,
                                   std::chrono::milliseconds limit)
{
    WaitOutcome outcome = WaitOutcome::Ended;
    if (!VYXApplication::isEnding()) {
        expectedReport = report;
        notifyEvent(request, {});
        outcome = waiter.waitUntil([this] { return isModuleResetDone(); }, limit);
    }
    if (outcome == WaitOutcome::Ended) {
        logWarning("The service is asked to end: abort reset operations.");
    }
    if (outcome == WaitOutcome::TimedOut) {
        const QStringList missing = resetModules.keys(false);
        logWarning("Not reset within %1 s: %2",
                   std::chrono::duration_cast<std::chrono::seconds>(limit).count(), missing.join(", "));
    }
    return outcome != WaitOutcome::Ended;
}

bool VYXSaveRestore::isModuleResetDone()
{
    for (auto module = resetModules.cbegin(); module != resetModules.cend(); ++module) {
        if (!module.value()) {
            logDebug("isModuleResetDone: module %1 has not reset yet.", module.key());
            return false;
        }
    }
    logDebug("isModuleResetDone: all modules have successfully reset.");
    return true;
}

void VYXSaveRestore::moduleResetDone(VYXEvent evt)
{
    const QString module = evt.getArgument("ModuleName").toString();
    logDebug("Module '%1' has reset its data", module);
    if (!expectedReport.isEmpty() && evt.getName() != expectedReport) {
        return;
    }
    resetModules.insert(module, true);
    if (evt.getArgument("NeedReboot").toBool()) {
        resetNeedsReboot = true;
    }
}

void VYXSaveRestore::refreshListOfModulesToReset()
{
    logDebug("refreshListOfModulesToReset: about to refresh the list of modules to reset");
    const RemoteCallResult result = knownModules.refreshModulesList(waiter);
    switch (result.outcome) {
    case RemoteCallResult::Answered:
        break;
    case RemoteCallResult::ErrorReply:
        logError("failed to get a valid reply after call to getModulesList of ApplicationManager");
        break;
    case RemoteCallResult::Unreachable:
        logError("Error in refreshListOfModulesToReset: %1", result.error);
        break;
    }
}
