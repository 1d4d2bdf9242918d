#pragma once

#include "restore/DatabaseRestore.h"
#include "restore/RestorePlanner.h"

#include <map>
#include <memory>

class RepositorySession;
class Waiter;

/// Puts single items back into a module's live data. One that cannot be put back stays as it was, and the log
/// says why.
class ItemRestorer
{
public:
    /// Both must outlive the object.
    ItemRestorer(RepositorySession &session, Waiter &waiter) : session(session), waiter(waiter) {}

    /// Do what can be done for a database while its module runs.
    void prepareDatabase(const PlannedItem &planned);

    /// True when the item was put back. A database has to be prepared, and its module to be paused.
    bool restore(const PlannedItem &planned);

private:
    bool restoreDatabase(const PlannedItem &planned);
    bool restoreDirectory(const PlannedItem &planned);
    bool restoreFile(const PlannedItem &planned);
    bool keep(const QString &reason, const QString &target);

    RepositorySession &session;
    Waiter &waiter;
    std::map<QString, std::unique_ptr<DatabaseRestore>> databases; ///< those prepared, by their paths
};
