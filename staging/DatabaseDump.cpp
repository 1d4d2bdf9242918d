#include "staging/DatabaseDump.h"

#include "commands/GzipWriter.h"
#include "commands/StreamedCommand.h"
#include "platform/logger/VYXLogger.h"
#include "staging/DumpStream.h"

#include <QRegularExpression>
#include <QSet>

#include <numeric>
#include <optional>

using namespace std::chrono_literals;

namespace {

// Each run of sqlite3 ends after half an hour; what it writes is bounded by the disk alone.
constexpr CommandLimits dumpLimits = {.wallClock = 30min, .processorTime = 30min, .fileSize = -1};

QString temporaryTable(int number)
{
    return QString("tmp_%1").arg(number);
}

/// Words that SQLite does not take as a bare table name (https://www.sqlite.org/lang_keywords.html).
bool isKeyword(const QString &word)
{
    static const QSet<QString> keywords = [] {
        const QString text =
            "ADD ALL ALTER AND AS AUTOINCREMENT BETWEEN CASE CHECK COLLATE COMMIT CONSTRAINT CREATE "
            "CURRENT_DATE "
            "CURRENT_TIME CURRENT_TIMESTAMP DEFAULT DEFERRABLE DELETE DISTINCT DROP ELSE ESCAPE EXCEPT "
            "EXISTS "
            "FILTER FOREIGN FROM GROUP HAVING IN INDEX INSERT INTERSECT INTO IS ISNULL JOIN LIMIT NATURAL "
            "NOT "
            "NOTHING NOTNULL NULL ON OR ORDER OVER PRIMARY REFERENCES RETURNING SELECT SET TABLE THEN TO "
            "TRANSACTION UNION UNIQUE UPDATE USING VALUES WHEN WHERE WINDOW";
        const QStringList words = text.split(' ');
        return QSet<QString>(words.begin(), words.end());
    }();
    return keywords.contains(word.toUpper());
}

/// Dump the tables that the pattern names, all when there is none.
bool passDump(Waiter &waiter, const QString &copy, const QString &pattern, DumpStream &stream)
{
    const QStringList arguments = {"-init", "/dev/null", "-batch", copy, (".dump " + pattern).trimmed()};
    const CommandResult result = runStreamed(waiter, "sqlite3", arguments, dumpLimits,
                                             [&](QByteArrayView portion) { return stream.take(portion); });
    return result.succeeded() && result.errorText.isEmpty() && stream.complete();
}

/// How many rows were selected in all; nothing when a table is missing or there is none.
std::optional<qint64> countRows(Waiter &waiter, const QList<DatabaseDump::Selection> &selections,
                                const QString &copy)
{
    QString sql;
    for (const DatabaseDump::Selection &selection : selections) {
        sql += QString("SELECT count(*) FROM %1;").arg(temporaryTable(selection.number));
    }
    const CommandResult result = runCommand(waiter, "sqlite3", {copy, sql});
    const QByteArrayList counts = result.output.trimmed().split('\n');
    if (selections.isEmpty() || !result.succeeded() || counts.size() != selections.size()) {
        return std::nullopt;
    }
    return std::accumulate(counts.cbegin(), counts.cend(), qint64{0},
                           [](qint64 sum, const QByteArray &count) { return sum + count.toLongLong(); });
}

} // namespace

namespace DatabaseDump {

QList<Selection> selections(const SqlCommands &commands)
{
    QList<Selection> list;
    for (const auto &[table, sql] : commands) {
        list << Selection{static_cast<int>(list.size()), table, sql};
    }
    return list;
}

QString sqlIdentifier(const QString &table)
{
    static const QRegularExpression ordinary(R"(\A[A-Za-z_][A-Za-z0-9_]*\z)");
    if (ordinary.match(table).hasMatch() && !isKeyword(table)) {
        return table;
    }
    QString escaped = table;
    escaped.replace("\"", "\"\"");
    return "\"" + escaped + "\"";
}

bool dumpWhole(Waiter &waiter, const QString &copy, qint64 objects, const QString &pragmas,
               const QString &dump)
{
    GzipWriter target(dump);
    DumpStream stream(target);
    // A shell that cannot read the schema prints a proper dump of nothing.
    bool whole = passDump(waiter, copy, {}, stream) && stream.objects() >= objects;
    if (whole && !pragmas.isEmpty()) {
        whole = target.endMember() && target.write(pragmas.toUtf8() + '\n');
    }
    return target.finish() && whole;
}

CommandResult select(Waiter &waiter, const Selection &selection, const QString &copy)
{
    const QString sql = QString("CREATE TABLE %1 AS %2").arg(temporaryTable(selection.number), selection.sql);
    logDebug("%1", sql);
    return runStreamed(waiter, "sqlite3", {"-init", "/dev/null", "-batch", copy, sql}, dumpLimits,
                       [](QByteArrayView) { return true; });
}

bool dumpRows(Waiter &waiter, const QList<Selection> &selections, const QString &copy, const QString &dump)
{
    const auto rows = countRows(waiter, selections, copy);
    if (!rows) {
        return false;
    }
    GzipWriter target(dump);
    bool whole = target.write("BEGIN TRANSACTION;\n");
    qint64 arrived = 0;
    for (const Selection &selection : selections) {
        const QString table = temporaryTable(selection.number);
        DumpStream stream(target, QString("INSERT INTO %1 ").arg(table).toUtf8(),
                          QString("REPLACE INTO %1 ").arg(sqlIdentifier(selection.table)).toUtf8());
        // The pattern of .dump is one of LIKE.
        whole = whole && passDump(waiter, copy, QString(table).replace("_", "\\_"), stream);
        arrived += stream.lines();
    }
    whole = whole && arrived == *rows && target.write("COMMIT;\n");
    return target.finish() && whole;
}

} // namespace DatabaseDump
