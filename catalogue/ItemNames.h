#pragma once

#include <QMap>
#include <QPair>
#include <QSet>
#include <QString>
#include <QStringList>

/// The names under which one saved item is known, and the ways between them.
///
/// | item                     | key in the checksum file | staged artefact        | repository entry       |
/// |--------------------------|--------------------------|------------------------|------------------------|
/// | database d of module m   | m/d.data                 | m++d.dump.gz           | m++d.dump.gz           |
/// | zipped directory a/b     | m/a/b.tar                | m++a++b.tar.gz         | m++a++b.tar.gz         |
/// | plain file c, a/c        | c, a/c                   | none, sent as it lies  | c, a++c                |
///
/// A plain file that another module saves under the same name is the entry m++c, m++a++c instead.
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

/// The path of an item without doubled and trailing slashes, or empty when it does not stay inside its
/// module's data directory or holds a TAB or a line break.
QString normalizedItemPath(const QString &path);

QString databaseKey(const QString &module, const QString &database);
QString stagedDump(const QString &module, const QString &database);
QString archiveKey(const QString &module, const QString &directory);
/// The name of the uncompressed archive; compression appends ".gz".
QString stagedArchive(const QString &module, const QString &directory);

/// The artefact of a database or zipped directory with that key; empty for a key of another form.
QString artefactOfKey(const QString &key);

/// The key that the name of an artefact stands for: its base name (up to the first dot) with "/" for every
/// "++", and ".data" for a name that contains "dump", else ".tar".
QString keyOfArtefact(const QString &fileName);

/// True when the key can be one of that module: a plain file stays inside the module's data directory, an
/// artefact has the module's name in front, and a database lies directly in the data directory.
bool isKeyOf(const QString &module, const QString &key, bool plainFile);

/// True when the names above cannot be led back to the item: it holds "++" or, as an archive or a database, a
/// dot.
bool isAmbiguous(const QString &item, bool artefact);

/// Names that the repository uses for itself and for a module's own two files.
QString modulesListName();
QString versionFileName(const QString &module);
QString checksumFileName(const QString &module);

/// The repository entries of plain files, collisions resolved.
///
/// An entry name claimed by more than one module, or by something else in the repository, is given up by all
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
