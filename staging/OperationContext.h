#pragma once

#include "catalogue/Priorities.h"

#include <QString>

#include <memory>

class KnownModules;
class Middleware;
class PauseKeeper;
class Repository;
class Waiter;

/// What a save or a restore is given when it begins; whatever is set meanwhile, it stays the same until the
/// end. What is referred to outlives the operation.
struct OperationContext
{
    Middleware &middleware;
    Waiter &waiter;
    KnownModules &modules;
    PauseKeeper &pauses;
    bool enabled = false; ///< saving and restoring are switched on
    Priorities priorities;
    std::shared_ptr<Repository> repository; ///< null when none has been chosen

    /// True when the operation has to end before its time; the log and, where it is a failure, a pop-up say
    /// so. `operation` is "backup" or "restore".
    bool isBrokenOff(const QString &operation) const;
};
