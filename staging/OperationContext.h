#pragma once

#include "catalogue/Priorities.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <memory>

class KnownModules;
class Middleware;
class OperationReport;
class PauseKeeper;
class Repository;
class RepositorySession;
class Waiter;

/// What the caller of an operation wants of it.
struct OperationOptions
{
    QStringList modules = {}; ///< those that it is about; empty for all
    bool dryRun = false;      ///< nothing is to be changed
    bool quiet = false;       ///< a failure is told to the caller alone, without a pop-up

    bool concerns(const QString &module) const { return modules.isEmpty() || modules.contains(module); }
};

/// What a save, a restore or a verify is given when it begins; whatever is set meanwhile, it stays the same
/// until the end. What is referred to outlives the operation.
struct OperationContext
{
    Middleware &middleware;
    Waiter &waiter;
    KnownModules &modules;
    PauseKeeper &pauses;
    OperationReport &report;
    bool enabled = false; ///< saving and restoring are switched on
    Priorities priorities = {};
    std::shared_ptr<Repository> repository = {}; ///< null when none has been chosen
    OperationOptions options = {};

    /// True when the operation has to end before its time; the log and, where it is a failure, a pop-up say
    /// so. `operation` is "backup" or "restore".
    bool isBrokenOff(const QString &operation) const;

    /// True when the session's repository can be used; else the log, the report and a pop-up say why not.
    bool isUsable(RepositorySession &session, const QString &operation) const;

    /// True when the modules that the options name are known; the report tells of one that is not.
    bool knowsModules() const;

    /// The save groups with a module that the operation is about.
    QList<QStringList> groups() const;
    /// All modules of these groups, each once.
    QStringList groupedModules() const;

    /// Tell that the repository's format is not known to this service, which leaves it alone then.
    void refuseFormat(const QString &operation) const;

    /// Show a failure unless it is told to the caller alone.
    void showFailure(const QString &text, const QString &detail = {}) const;
    /// Log it, too.
    void reportFailure(const QString &text) const;
};
