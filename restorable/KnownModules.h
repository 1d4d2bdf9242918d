#pragma once

#include "platform/core/RemoteCall.h"
#include "platform/records/ApplicationConfig.h"
#include "restorable/RestorableObject.h"
#include "restorable/SaveGroups.h"

#include <utility>

class Middleware;
class Waiter;

/// The modules of the device, what they have saved, and which of them are paused together, as they were when
/// asked for last.
///
/// Pointers and references that are handed out hold until the next call that asks anew; operations ask, and
/// one of them runs at a time.
class KnownModules
{
public:
    /// The middleware must outlive the object.
    explicit KnownModules(Middleware &middleware) : middleware(middleware) {}

    /// Ask the ApplicationManager for the modules and read their descriptions. False when it does not answer;
    /// no description is known then.
    bool parseRestorableConfigFiles(Waiter &waiter, MissingData missing = MissingData::Reported);

    /// Ask for the modules alone; the descriptions stay. The outcome says whether there was an answer.
    RemoteCallResult refreshModulesList(Waiter &waiter);

    /// Read the descriptions of the modules that are known.
    void describeModules(MissingData missing = MissingData::Reported);

    /// Make the groups from the descriptions.
    void computeSaveGroups();

    /// Make the groups anew when a described module is in none.
    void completeSaveGroups();

    const QList<ApplicationConfig> &modulesList() const { return modules; }
    /// The descriptions of the running modules that have one.
    const QList<RestorableObject> &objects() const { return restorableObjects; }
    const SaveGroups &groups() const { return saveGroups; }

    /// Null when there is no description of that module.
    const RestorableObject *findObject(const QString &module) const;
    /// The process id of a module as text; empty when the module is not known.
    QString processIdOf(const QString &module) const;
    /// Each module with its process id, in the same order.
    QList<std::pair<QString, QString>> processesOf(const QStringList &names) const;

    /// True when the device has a description of that module, whether it runs or not.
    static bool isInstalled(const QString &module);

private:
    Middleware &middleware;
    QList<ApplicationConfig> modules;
    QList<RestorableObject> restorableObjects;
    SaveGroups saveGroups;
};
