#pragma once

#include <QStringList>

#include <optional>
#include <utility>

class ChecksumLine;

/// An item of a module, by the identity that its line in a checksum file has.
using ItemIdentity = std::pair<QString, QString>;

enum RestorableItemKind { FileItem = 0, DirectoryItem = 1, DatabaseItem = 2 };

/// One thing that the repository holds of a module, and the names under which it is known. A plain value.
///
/// | item                   | path | key in the checksum file | entry          | live path       |
/// |------------------------|------|--------------------------|----------------|-----------------|
/// | database d of module m | d    | m/d.data                 | m++d.dump.gz   | <data>/m/d.data |
/// | zipped directory a/b   | a/b  | m/a/b.tar                | m++a++b.tar.gz | <data>/m/a/b    |
/// | plain file a/c         | a/c  | a/c                      | a++c           | <data>/m/a/c    |
///
/// Where items collide their entries have other names: see SavedEntries.
class SavedItem
{
public:
    /// `path` is that of a file or directory below the module's data, or the name of a database.
    SavedItem(RestorableItemKind kind, QString module, QString path, QString priority);

    /// The item of a line of a module's checksum file. Nothing when it cannot be one of that module: its kind
    /// is not known, its path does not stay inside the module's data directory, it does not have the form of
    /// its kind, or a database does not lie directly in the data directory.
    static std::optional<SavedItem> parse(const QString &module, const ChecksumLine &line);

    RestorableItemKind getKind() const { return kind; }
    QString getModule() const { return module; }
    QString getPath() const { return path; }
    /// "high", "normal" or "low".
    QString getPriority() const { return priority; }

    QString key() const;
    /// The names that its entry can have, the last of which is that of no other item.
    QStringList entryNames() const;
    QString livePath() const;
    /// Where the archive or dump is staged.
    QString stagedPath() const;

private:
    QString entrySuffix() const;

    RestorableItemKind kind;
    QString module;
    QString path;
    QString priority;
};
