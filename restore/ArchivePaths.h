#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

/// Where the paths and links of an archive lead that was made of one directory. Nothing is looked up: only
/// the names count.
class ArchivePaths
{
public:
    /// The absolute path of the directory, as it was when the archive was made.
    explicit ArchivePaths(const QString &directory);

    /// A member's path relative to the directory, empty for the directory itself. Nothing when it is neither
    /// the directory nor below it, has a component "..", or one with the service's own prefix.
    std::optional<QByteArray> relative(const QByteArray &member) const;

    /// True when a link at a path relative to the directory leads to the directory or below it. A ".." behind
    /// a name never does: the name may be a link, and then nobody knows what is above it.
    bool staysInside(const QByteArray &link, const QByteArray &target) const;

private:
    const QList<QByteArray> directory; ///< its components
    const QByteArray ownPrefix;
};
