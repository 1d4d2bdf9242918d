#include "commands/ShellText.h"

#include <QRegularExpression>

namespace ShellText {

QString quoted(const QString &value)
{
    static const QRegularExpression ordinary(R"(\A[A-Za-z0-9_./+:=,@%][A-Za-z0-9_./+:=,@%-]*\z)");
    if (ordinary.match(value).hasMatch()) {
        return value;
    }
    QString escaped = value;
    escaped.replace("'", "'\\''");
    return "'" + escaped + "'";
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
