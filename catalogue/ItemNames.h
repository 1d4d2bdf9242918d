#pragma once

#include <QMap>
#include <QPair>
#include <QSet>
#include <QString>
#include <QStringList>

/// Names of modules, of items and of the repository's entries.
///
/// A plain file c is the entry c, a plain file a/c the entry a++c. One that another module saves under the
/// same name is the entry m++c, m++a++c instead.
namespace ItemNames {

/// An entry of the repository as it is given to a send or a removal.
struct EntryName
{
    QString prefix;
    QString name;

    /// The entry's full name.
    QString text() const { return prefix.isEmpty() ? name : prefix + "++" + name; }
};

/// The last component of a path, empty parts skipped.
QString lastComponent(const QString &path);

/// True when the name can stand for one module everywhere: a single plain path component.
bool isModuleName(const QString &name);

/// What the names of the service's own files and directories beside data begin with.
QString ownPrefix();
/// True when a component of the path has such a name: nobody's data may.
bool isOwn(const QString &path);

/// The path of an item without doubled and trailing slashes, or empty when it does not stay inside its
/// module's data directory, holds a TAB or a line break, or a component with the service's own prefix.
QString normalizedItemPath(const QString &path);

/// The path as one component: "++" for every "/".
QString flattened(const QString &path);

/// True when an entry's name cannot be told from that of another path: it holds "++".
bool isAmbiguous(const QString &path);

/// Names that the repository uses for itself and for a module's own files.
QString modulesListName();
QString versionFileName(const QString &module);
QString checksumFileName(const QString &module);
QString migrationProgramName(const QString &module);

/// The repository entries of plain files, collisions resolved.
///
/// An entry name claimed by more than one of them, or by something else in the repository, is given up by all
/// plain files that claim it: each takes its module's name in front instead.
class PlainFileEntries
{
public:
    PlainFileEntries() = default;
    /// `keysByModule` holds the keys of each module's plain files, `reserved` the entries of everything else.
    PlainFileEntries(const QMap<QString, QStringList> &keysByModule, const QSet<QString> &reserved);

    EntryName entry(const QString &module, const QString &key) const;

private:
    using Item = QPair<QString, QString>;

    QSet<Item> qualified;
};

} // namespace ItemNames
