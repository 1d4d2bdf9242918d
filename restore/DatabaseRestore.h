#pragma once

#include <QString>

class Waiter;

/// Putting SQL dumps back into SQLite databases with the device's tools.
namespace DatabaseRestore {

/// True for a dump that holds selected rows only, to be merged into a database that exists.
bool isPartial(Waiter &waiter, const QString &dump);

/// Run the dump on the database, which is made when it does not exist. True when the dump was read to its
/// end, every statement succeeded, and the database passes SQLite's quick check.
bool load(Waiter &waiter, const QString &dump, const QString &database);

} // namespace DatabaseRestore
