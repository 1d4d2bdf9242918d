#include "staging/DatabaseDump.h"

#include "commands/GzipWriter.h"
#include "commands/StreamedCommand.h"
#include "platform/logger/VYXLogger.h"
#include "staging/DumpStream.h"

#include <QFileInfo>
#include <QRegularExpression>
#include <QSet>

#include <algorithm>
#include <functional>
#include <optional>
#include <utility>

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

/// What SQLite says of a copy before it dumps it: a line each.
class CopyReport
{
public:
    explicit CopyReport(const QString &copy) : empty(QFileInfo(copy).size() == 0) {}

    static QStringList commands()
    {
        return {"PRAGMA quick_check(1); PRAGMA page_count; PRAGMA user_version; PRAGMA application_id; "
                "SELECT count(*) FROM sqlite_master WHERE sql IS NOT NULL AND name NOT LIKE "
                "'sqlite\\_%' ESCAPE '\\';"};
    }

    /// Take the report's lines off the front. False when the copy is not sound.
    bool take(QByteArrayView &portion)
    {
        while (lines.size() < lineCount && !portion.isEmpty()) {
            const qsizetype end = portion.indexOf('\n');
            const QByteArrayView part = portion.first(end < 0 ? portion.size() : end);
            line.append(part.first(std::min(part.size(), mostOfLine - line.size())));
            portion = portion.sliced(end < 0 ? portion.size() : end + 1);
            if (end >= 0) {
                lines << std::exchange(line, {});
            }
            if (!lines.isEmpty() && lines.first() != "ok") {
                return false;
            }
        }
        return true;
    }

    /// A file that is cut off within its first page passes for an empty database.
    bool isSound() const { return lines.size() == lineCount && (lines.at(1) != "0" || empty); }

    /// Tables, indexes, views and triggers that a dump makes.
    qint64 objects() const { return lines.value(4).toLongLong(); }

    /// Part of the content that ".dump" leaves out.
    QByteArray pragmas() const
    {
        QByteArray sql;
        if (lines.value(2, "0") != "0") {
            sql += "PRAGMA user_version=" + QByteArray::number(lines.at(2).toInt()) + ';';
        }
        if (lines.value(3, "0") != "0") {
            sql += "PRAGMA application_id=" + QByteArray::number(lines.at(3).toInt()) + ';';
        }
        return sql;
    }

private:
    static constexpr qsizetype lineCount = 5;
    static constexpr qsizetype mostOfLine = 64;

    const bool empty;
    QByteArrayList lines;
    QByteArray line;
};

CommandResult runSqlite(const Waiter &waiter, const QString &copy, const QStringList &commands,
                        const std::function<bool(QByteArrayView)> &take)
{
    return runStreamed(waiter, "sqlite3", QStringList{"-init", "/dev/null", "-batch", copy} + commands,
                       dumpLimits, take);
}

bool passOver(QByteArrayView)
{
    return true;
}

/// Dump the tables that the pattern names.
bool passRows(const Waiter &waiter, const QString &copy, const QString &pattern, DumpStream &stream)
{
    const CommandResult result = runSqlite(waiter, copy, {".dump " + pattern},
                                           [&](QByteArrayView portion) { return stream.take(portion); });
    return result.succeeded() && result.errorText.isEmpty() && stream.complete();
}

/// How many rows were selected in all; nothing when a table is missing or there is none.
std::optional<qint64> countRows(const Waiter &waiter, const QList<DatabaseDump::Selection> &selections,
                                const QString &copy)
{
    constexpr qsizetype most = 4096;
    QString sql = "SELECT 0";
    for (const DatabaseDump::Selection &selection : selections) {
        sql += QString("+(SELECT count(*) FROM %1)").arg(temporaryTable(selection.number));
    }
    QByteArray count;
    const CommandResult result = runSqlite(waiter, copy, {sql}, [&](QByteArrayView portion) {
        count.append(portion);
        return count.size() < most;
    });
    bool known = false;
    const qint64 rows = count.trimmed().toLongLong(&known);
    return result.succeeded() && known && !selections.isEmpty() ? std::optional(rows) : std::nullopt;
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

Outcome dumpWhole(const Waiter &waiter, const QString &copy, const QString &dump, const QString &digest)
{
    GzipWriter target(dump);
    target.label(digest.toLatin1());
    DumpStream stream(target);
    CopyReport report(copy);
    const CommandResult result =
        runSqlite(waiter, copy, CopyReport::commands() + QStringList{".dump"}, [&](QByteArrayView portion) {
            return report.take(portion) && (portion.isEmpty() || (report.isSound() && stream.take(portion)));
        });
    if (!report.isSound()) {
        return Outcome::Unsound;
    }
    // A shell that cannot read the schema prints a proper dump of nothing.
    bool whole = result.succeeded() && result.errorText.isEmpty() && stream.complete() &&
                 stream.objects() >= report.objects();
    if (whole && !report.pragmas().isEmpty()) {
        whole = target.endMember() && target.write(report.pragmas() + '\n');
    }
    return target.finish() && whole ? Outcome::Whole : Outcome::Failed;
}

bool isSound(const Waiter &waiter, const QString &copy)
{
    CopyReport report(copy);
    const CommandResult result = runSqlite(waiter, copy, CopyReport::commands(),
                                           [&](QByteArrayView portion) { return report.take(portion); });
    return result.succeeded() && report.isSound();
}

bool fold(const Waiter &waiter, const QString &copy)
{
    const QString sql = "SELECT count(*) FROM sqlite_master; PRAGMA wal_checkpoint(TRUNCATE);";
    return runSqlite(waiter, copy, {sql}, passOver).succeeded();
}

CommandResult select(const Waiter &waiter, const Selection &selection, const QString &copy)
{
    const QString sql = QString("CREATE TABLE %1 AS %2").arg(temporaryTable(selection.number), selection.sql);
    logDebug("%1", sql);
    return runSqlite(waiter, copy, {sql}, passOver);
}

Outcome dumpRows(const Waiter &waiter, const QList<Selection> &selections, const QString &copy,
                 const QString &dump, const QString &digest)
{
    const auto rows = countRows(waiter, selections, copy);
    if (!rows) {
        return Outcome::Failed;
    }
    GzipWriter target(dump);
    target.label(digest.toLatin1());
    bool whole = target.write("BEGIN TRANSACTION;\n");
    qint64 arrived = 0;
    for (const Selection &selection : selections) {
        const QString table = temporaryTable(selection.number);
        DumpStream stream(target, QString("INSERT INTO %1 ").arg(table).toUtf8(),
                          QString("REPLACE INTO %1 ").arg(sqlIdentifier(selection.table)).toUtf8());
        // The pattern of .dump is one of LIKE.
        whole = whole && passRows(waiter, copy, QString(table).replace("_", "\\_"), stream);
        arrived += stream.lines();
    }
    whole = whole && arrived == *rows && target.write("COMMIT;\n");
    return target.finish() && whole ? Outcome::Whole : Outcome::Failed;
}

} // namespace DatabaseDump
