#include "commands/ShellText.h"

#include <QRegularExpression>

namespace {

bool echoWouldChange(const QString &value)
{
    return value.contains('\\') || value.startsWith('-');
}

} // namespace

namespace ShellText {

QString singleQuoted(const QString &value)
{
    QString escaped = value;
    escaped.replace("'", "'\\''");
    return "'" + escaped + "'";
}

QString quoted(const QString &value)
{
    static const QRegularExpression ordinary(R"(\A[A-Za-z0-9_./+:=,@%][A-Za-z0-9_./+:=,@%-]*\z)");
    return ordinary.match(value).hasMatch() ? value : singleQuoted(value);
}

QString printQuotedCommand(const QString &value)
{
    return (echoWouldChange(value) ? QString("printf '%s\\n' ") : QString("echo ")) + singleQuoted(value);
}

QString commandLine(const QString &program, const QStringList &arguments)
{
    QStringList words = {quoted(program)};
    for (const QString &argument : arguments) {
        words << quoted(argument);
    }
    return words.join(' ');
}

} // namespace ShellText
