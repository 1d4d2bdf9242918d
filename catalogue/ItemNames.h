#pragma once

#include <QByteArray>
#include <QString>

/// Names of modules, of items and of the repository's entries.
namespace ItemNames {

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

/// True for the name of a file that a line can hold and that comes back as the same bytes.
bool fitsLine(const QByteArray &name);

/// True for a link in the directory `parent`, at or below `directory`, whose target lies outside of that. By
/// its text alone, as a restore sees it: what it leads to may be a link again.
bool leadsOut(const QByteArray &target, const QString &parent, const QString &directory);

/// The path as one component: "++" for every "/".
QString flattened(const QString &path);

/// The path as one component that no other path has: "%25" for every "%", "%2B" for every "+", then "++" for
/// every "/".
QString escaped(const QString &path);

/// Names that the repository uses for itself and for a module's own files.
QString modulesListName();
/// A name that no item's entry can have, nor could in any service before: those begin with a component of the
/// item's path or with its module's name, and neither may begin with the service's own prefix.
QString formatName();
/// True when the repository may have an entry of that name: none has the service's own prefix but the format.
bool canBeEntry(const QString &name);
QString versionFileName(const QString &module);
QString checksumFileName(const QString &module);
QString attributesFileName(const QString &module);
QString migrationProgramName(const QString &module);

} // namespace ItemNames
