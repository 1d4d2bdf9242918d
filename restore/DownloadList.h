#pragma once

#include <QString>

#include <optional>

/// One line of a download list: what a restore pass applies.
///
/// Fields are separated by single spaces. Spaces, "%" and control characters in a field are percent-encoded
/// as in URLs; everything else stands as it is.
///
///     directory <archive> <priority>
///     database <dump> <live file> <priority>
///     file <repository entry> <live file> <priority>
struct DownloadLine
{
    enum Kind { File, Directory, Database };

    Kind kind = File;
    QString source;   ///< path of the archive or dump, or name of the repository's entry
    QString target;   ///< path of the live file; empty for a directory
    QString priority; ///< "high", "normal" or "low"

    /// The line with its line feed.
    QString text() const;

    /// Nothing for a line of an unknown kind or with another number of fields than its kind has.
    static std::optional<DownloadLine> parse(const QString &line);
};
