#pragma once

#include "restore/RestorePlanner.h"

class RepositorySession;
class Waiter;

/// Puts single items back into a module's live data. One that cannot be put back stays as it was, and the log
/// says why.
class ItemRestorer
{
public:
    /// Both must outlive the object.
    ItemRestorer(RepositorySession &session, Waiter &waiter) : session(session), waiter(waiter) {}

    /// True when the item was put back. The module of a database has to be paused.
    bool restore(const PlannedItem &planned);

private:
    bool restoreDatabase(const PlannedItem &planned);
    bool restoreDirectory(const PlannedItem &planned);
    bool restoreFile(const PlannedItem &planned);
    bool keep(const QString &reason, const QString &target);

    RepositorySession &session;
    Waiter &waiter;
};
