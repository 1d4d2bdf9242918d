#pragma once

#include "restorable/RestorableItem.h"

#include <QList>
#include <QString>

/// The shell lines that turn the staged copy of a SQLite database into its compressed SQL dump. Every name in
/// them is quoted; ordinary names stand as they are.
namespace DatabaseDump {

/// One selection of a partly saved database.
struct Selection
{
    int number;    ///< position in the description, names the temporary table
    QString table; ///< table that the rows belong to
    QString sql;
};

QList<Selection> selections(const SqlCommands &commands);

/// Dump the whole copy. A tool that fails on the way leaves a dump that `checkLine` refuses, here and below.
QString fullDumpLine(const QString &copy, const QString &dump);

/// Append the pragmas that a dump does not carry as a second gzip member.
QString appendPragmasLine(const QString &pragmas, const QString &dump);

/// Materialise the selected rows as the temporary table tmp_<number> in the copy.
QString createTableLine(const Selection &selection, const QString &copy);

/// SQL that tells how many rows each temporary table has, one number for each.
QString countRowsSql(const QList<Selection> &selections);

/// Dump the rows of the temporary tables as "REPLACE INTO" statements for their real tables in one
/// transaction, which is closed only when there are that many of them.
QString partialDumpLine(const QList<Selection> &selections, const QString &copy, const QString &dump,
                        qint64 rows);

/// Succeeds when the dump can be decompressed and its transaction was closed without errors.
QString checkLine(const QString &dump);

/// A table's name as SQL: as it is when it is an ordinary identifier, else in double quotes.
QString sqlIdentifier(const QString &table);

} // namespace DatabaseDump
