#include "staging/DatabaseDump.h"

#include "commands/ShellText.h"

#include <QRegularExpression>
#include <QSet>

namespace {

using ShellText::quoted;

const QString failedTransaction = "ROLLBACK; -- due to errors";
const QString failureRule = "/^" + failedTransaction + "$/ {failed = 1}";

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

/// The shell treats a line that starts with "." or "#" as its own command or as a comment.
QString asSqlOnly(QString sql)
{
    static const QRegularExpression shellCommand("^(?=[.#])", QRegularExpression::MultilineOption);
    return sql.replace(shellCommand, " ");
}

QString awkString(QString text)
{
    text.replace("\\", "\\\\").replace("\"", "\\\"").replace("\n", "\\n");
    return "\"" + text + "\"";
}

/// The awk rule that turns rows of a temporary table into rows of the real one. A substitution would read "&"
/// and
/// "\" in the name; such names are put in front of the rest of the line instead.
QString renamingRule(const DatabaseDump::Selection &selection)
{
    const QString head = QString("INSERT INTO %1 ").arg(temporaryTable(selection.number));
    const QString replacement = QString("REPLACE INTO %1 ").arg(DatabaseDump::sqlIdentifier(selection.table));
    if (!replacement.contains('&') && !replacement.contains('\\')) {
        return QString(" {sub(/^%1/, %2)}").arg(head, awkString(replacement));
    }
    return QString(" {if (index($0, \"%1\") == 1) $0 = %2 substr($0, %3)}")
        .arg(head, awkString(replacement), QString::number(head.size() + 1));
}

/// What sqlite3 prints of these tables, of all when none is named. When it fails or is killed, its last line
/// is that of a transaction that failed.
QString dumpSource(const QStringList &tables, const QString &copy)
{
    const QString command = (QStringList{".dump"} + tables).join(' ');
    return QString("{ echo '%1' | sqlite3 %2 || echo '%3'; }").arg(command, quoted(copy), failedTransaction);
}

QString dumpTail(const QString &dump)
{
    return QString(" | gzip -c >%1").arg(quoted(dump));
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

QString fullDumpLine(const QString &copy, const QString &dump)
{
    return dumpSource({}, copy) + dumpTail(dump);
}

QString appendPragmasLine(const QString &pragmas, const QString &dump)
{
    return QString("echo %1 | gzip -c >>%2").arg(ShellText::singleQuoted(pragmas), quoted(dump));
}

QString createTableLine(const Selection &selection, const QString &copy)
{
    const QString sql =
        QString("CREATE TABLE %1 AS %2").arg(temporaryTable(selection.number), asSqlOnly(selection.sql));
    return QString("%1 | sqlite3 %2").arg(ShellText::printQuotedCommand(sql), quoted(copy));
}

QString countRowsSql(const QList<Selection> &selections)
{
    QString sql;
    for (const Selection &selection : selections) {
        sql += QString("SELECT count(*) FROM %1;").arg(temporaryTable(selection.number));
    }
    return sql;
}

QString partialDumpLine(const QList<Selection> &selections, const QString &copy, const QString &dump,
                        qint64 rows)
{
    QStringList tables;
    QString program = failureRule + " /^COMMIT;$/ {closed = 1} BEGIN {print \"BEGIN TRANSACTION;\"} "
                                    "!/^INSERT INTO tmp_/ {next}";
    for (const Selection &selection : selections) {
        tables << temporaryTable(selection.number);
        program += renamingRule(selection);
    }
    program += QString(" /^REPLACE INTO / {print; ++rows} "
                       "END {if (closed && !failed && rows == %1) print \"COMMIT;\"}")
                   .arg(rows);
    return QString("%1 | awk %2").arg(dumpSource(tables, copy), ShellText::singleQuoted(program)) +
           dumpTail(dump);
}

QString checkLine(const QString &dump)
{
    return QString(
               "gzip -t %1 && zcat %1 | awk '/^COMMIT;$/ {closed = 1} %2 END {exit !(closed && !failed)}'")
        .arg(quoted(dump), failureRule);
}

} // namespace DatabaseDump
