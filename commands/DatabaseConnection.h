#pragma once

#include <QString>

#include <chrono>
#include <memory>

struct sqlite3;
class Waiter;

struct DatabaseClosing
{
    void operator()(sqlite3 *database) const;
};
using DatabaseConnection = std::unique_ptr<sqlite3, DatabaseClosing>;

/// A connection to the database in a file, closed at its end. Nothing when it cannot be opened, or when it is
/// a link by now: its directory belongs to others. `flags` are those of `sqlite3_open_v2`; a lock is waited
/// for as long as `busy`. What the schema says is not trusted, and a statement is interrupted when the
/// waiter, which must outlive the connection, has to end; without one, when the process has to.
DatabaseConnection connectToDatabase(const QString &path, int flags, std::chrono::milliseconds busy = {},
                                     const Waiter *waiter = nullptr);
