#include "reset/ResetOperation.h"

#include "platform/core/Middleware.h"
#include "platform/core/Waiter.h"
#include "platform/logger/VYXLogger.h"
#include "reset/ResetDatabase.h"
#include "restorable/KnownModules.h"

ResetOperation::ResetOperation(Kind kind, KnownModules &modules, Middleware &middleware, Waiter &waiter,
                               std::chrono::milliseconds limit)
    : kind(kind), modules(modules), middleware(middleware), waiter(waiter), limit(limit)
{
    const auto report = [this](const VYXEvent &event) { moduleResetDone(event); };
    if (kind == Kind::ToDefault) {
        middleware.subscribeEvent("reset_default_done", this, report);
    } else {
        middleware.subscribeEvent("reset_factory_done", this, report);
    }
}

void ResetOperation::run()
{
    runAllResetCommands();
    listModules();
    if (!requestResets()) {
        return;
    }
    if (kind == Kind::ToDefault) {
        middleware.notifyEvent(VYXEvent("reset_data_default_complete"));
    } else {
        middleware.asyncRemoteCall("ApplicationManager", "stopAll", {});
    }
}

void ResetOperation::runAllResetCommands()
{
    // Nothing is known after a start without modules, and no description after a save that found none.
    if (modules.modulesList().isEmpty()) {
        refreshListOfModulesToReset();
    }
    if (modules.objects().isEmpty()) {
        modules.describeModules();
    }
    const bool toDefault = kind == Kind::ToDefault;
    for (const RestorableObject &object : modules.objects()) {
        logDebug(toDefault ? "Reset to default for module: %1" : "Reset to factory for module: %1",
                 object.getName());
        runResetCommands(object.getName(),
                         toDefault ? object.getResetToDefaultCommands() : object.getResetToFactoryCommands());
    }
}

void ResetOperation::runResetCommands(const QString &module, const SqlCommands &commands) const
{
    ResetDatabase database;
    QString current;
    for (const auto &[name, sql] : commands) {
        if (waiter.mustEnd()) {
            return;
        }
        if (name != current) {
            current = name;
            if (!database.open(module, name)) {
                logError("Cannot access to database %1.data", name);
                continue;
            }
            logDebug("Open database %1.data", name);
        }
        logDebug("SQL command for db '%1': '%2'", name, sql);
        QString error;
        waiter.runBeside([&database, &error, &sql = sql] { error = database.execute(sql); });
        if (!error.isEmpty()) {
            logError("SQL command for db '%1' failed: %2", name, error);
        }
    }
}

/// To default, modules that are stopped are not waited for; to factory, all are.
void ResetOperation::listModules()
{
    if (kind == Kind::ToDefault) {
        refreshListOfModulesToReset();
    }
    rebootNeeded = false;
    for (const ApplicationConfig &module : modules.modulesList()) {
        if (kind == Kind::ToFactory || module.getState() != "STOPPED") {
            resetModules.insert(module.getName(), false);
        }
    }
}

bool ResetOperation::requestResets()
{
    WaitOutcome outcome = WaitOutcome::Ended;
    if (!waiter.mustEnd()) {
        middleware.notifyEvent(
            VYXEvent(kind == Kind::ToDefault ? "reset_data_default" : "reset_data_factory"));
        outcome = waiter.waitUntil([this] { return isModuleResetDone(); }, limit);
    }
    if (outcome == WaitOutcome::Ended) {
        logWarning("The service is asked to end: abort reset operations.");
    }
    if (outcome == WaitOutcome::TimedOut) {
        logWarning("Not reset within %1 s: %2",
                   std::chrono::duration_cast<std::chrono::seconds>(limit).count(),
                   resetModules.keys(false).join(", "));
    }
    return outcome != WaitOutcome::Ended;
}

bool ResetOperation::isModuleResetDone() const
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

void ResetOperation::moduleResetDone(const VYXEvent &evt)
{
    const QString module = evt.getArgument("ModuleName").toString();
    logDebug("Module '%1' has reset its data", module);
    resetModules.insert(module, true);
    rebootNeeded = rebootNeeded || evt.getArgument("NeedReboot").toBool();
}

void ResetOperation::refreshListOfModulesToReset()
{
    logDebug("refreshListOfModulesToReset: about to refresh the list of modules to reset");
    const RemoteCallResult result = modules.refreshModulesList(waiter);
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
