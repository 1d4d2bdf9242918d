#pragma once

#include <QString>

/// What is wrong with a file in which a repository says what it holds, and which was fetched; empty for
/// nothing. Whoever only reads it passes over what makes no sense.
namespace ControlFileFaults {

QString ofVersionFile(const QString &path);
QString ofChecksumFile(const QString &path, qsizetype usableLines);
QString ofAttributesFile(const QString &path);

} // namespace ControlFileFaults
