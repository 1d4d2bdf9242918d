#pragma once

#include "restorable/RestorableItem.h"

#include <QMap>
#include <QObject>
#include <QString>
#include <QStringList>

#include <chrono>

class KnownModules;
class Middleware;
class RestorableObject;
class VYXEvent;
class Waiter;

/// One reset of all modules' data: the commands of the descriptions on the modules' databases, then the
/// request to the modules, each of which resets by itself what no command reaches, and the wait for their
/// reports.
class ResetOperation : public QObject
{
    Q_OBJECT

public:
    enum class Kind { ToDefault, ToFactory };

    /// `limit` bounds the wait for the reports. What is referred to must outlive the operation.
    ResetOperation(Kind kind, KnownModules &modules, Middleware &middleware, Waiter &waiter,
                   std::chrono::milliseconds limit);

    /// Run the reset. Modules that do not report in time are named in the log. To default: an event tells the
    /// end; to factory: the ApplicationManager is asked to stop all modules. Neither happens when the process
    /// ends before.
    void run();

    /// True when a module asked for a reboot.
    bool needsReboot() const { return rebootNeeded; }

    /// The modules that have not reported.
    QStringList silentModules() const { return resetModules.keys(false); }

private:
    void runAllResetCommands();
    void runResetCommands(const QString &module, const SqlCommands &commands) const;
    void listModules();
    bool requestResets();
    bool isModuleResetDone() const;
    void moduleResetDone(const VYXEvent &evt);
    void refreshListOfModulesToReset();

    Kind kind;
    KnownModules &modules;
    Middleware &middleware;
    Waiter &waiter;
    std::chrono::milliseconds limit;
    QMap<QString, bool> resetModules; ///< which modules have reported
    bool rebootNeeded = false;
};
