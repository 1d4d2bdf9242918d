#pragma once

#include <QString>
#include <QStringList>

/// Texts for the POSIX shell. A value that went through `quoted` is one word of the line and nothing else.
namespace ShellText {

/// The value as one shell word. Ordinary names and paths (letters, digits and "_./+:=,@%-", not starting with
/// "-") stay as they are; anything else is put in single quotes.
QString quoted(const QString &value);

/// Program and arguments as one line for a log.
QString commandLine(const QString &program, const QStringList &arguments);

} // namespace ShellText
