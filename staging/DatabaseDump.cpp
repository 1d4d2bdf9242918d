#include "staging/DatabaseDump.h"

#include "commands/ShellText.h"

#include <QRegularExpression>
#include <QSet>

namespace {

using ShellText::quoted;

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

QString dumpTail(const QString &copy, const QString &dump)
{
    return QString("| gzip -c >%1; rm %2").arg(quoted(dump), quoted(copy));
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
    return QString("echo '.dump' | sqlite3 %1 ").arg(quoted(copy)) + dumpTail(copy, dump);
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

QString partialDumpLine(const QList<Selection> &selections, const QString &copy, const QString &dump)
{
    QStringList tables;
    QString program = "BEGIN {print \"BEGIN TRANSACTION;\"}";
    for (const Selection &selection : selections) {
        tables << temporaryTable(selection.number);
        program += renamingRule(selection);
    }
    program += " /^REPLACE INTO / {print} END {print \"COMMIT;\"}";
    return QString("echo '.dump %1' | sqlite3 %2| grep -a '^INSERT INTO tmp_'| awk %3")
               .arg(tables.join(' '), quoted(copy), ShellText::singleQuoted(program)) +
           dumpTail(copy, dump);
}

QString checkLine(const QString &dump)
{
    return QString("gzip -t %1 && zcat %1 | awk '/^COMMIT;$/ {closed = 1} "
                   "/^ROLLBACK; -- due to errors$/ {failed = 1} END {exit !(closed && !failed)}'")
        .arg(quoted(dump));
}

} // namespace DatabaseDump
