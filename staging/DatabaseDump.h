#pragma once

#include "commands/Command.h"
#include "restorable/RestorableItem.h"

#include <QList>
#include <QString>

class Waiter;

/// Turns the staged copy of a SQLite database into its compressed SQL dump. `sqlite3` prints the SQL; it is
/// checked and compressed while it comes. For a thread beside.
namespace DatabaseDump {

/// One selection of a partly saved database, whose rows are in the temporary table tmp_<number> of the copy.
struct Selection
{
    int number;    ///< position in the description
    QString table; ///< table that the rows belong to
    QString sql;
};

QList<Selection> selections(const SqlCommands &commands);

enum class Outcome {
    Whole,
    Unsound, ///< the copy is no database in order
    Failed,  ///< the file is not a whole dump
};

/// Check the copy and dump the whole of it, and in a gzip member of its own the pragmas, which a dump does
/// not carry. The dump has no fewer tables, indexes, views and triggers than the copy.
/// Dumps are labelled with the digest of the database that they are of.
Outcome dumpWhole(const Waiter &waiter, const QString &copy, const QString &dump, const QString &digest);

bool isSound(const Waiter &waiter, const QString &copy);

/// Put what the side files of a copy hold into the copy itself. False when that was not possible.
bool fold(const Waiter &waiter, const QString &copy);

/// Materialise the selected rows as the temporary table. What the command prints is not kept.
CommandResult select(const Waiter &waiter, const Selection &selection, const QString &copy);

/// Dump the rows of the temporary tables as "REPLACE INTO" statements for their real tables in one
/// transaction. All rows must arrive, and there must be a table.
Outcome dumpRows(const Waiter &waiter, const QList<Selection> &selections, const QString &copy,
                 const QString &dump, const QString &digest);

/// A table's name as SQL: as it is when it is an ordinary identifier, else in double quotes.
QString sqlIdentifier(const QString &table);

} // namespace DatabaseDump
