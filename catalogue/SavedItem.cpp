#include "catalogue/SavedItem.h"

#include "catalogue/ChecksumFile.h"
#include "catalogue/ItemNames.h"
#include "platform/DevicePaths.h"

#include <utility>

namespace {

const QString databaseSuffix = ".data";
const QString archiveSuffix = ".tar";

} // namespace

SavedItem::SavedItem(RestorableItemKind kind, QString module, QString path, QString priority)
    : kind(kind), module(std::move(module)), path(std::move(path)), priority(std::move(priority))
{
}

std::optional<SavedItem> SavedItem::parse(const QString &module, const ChecksumLine &line)
{
    const QString key = line.key();
    if (key.isEmpty() || ItemNames::normalizedItemPath(key) != key) {
        return std::nullopt;
    }
    if (line.isPlainFile()) {
        return SavedItem(FileItem, module, key, line.priority());
    }
    const bool database = line.kind() == "database";
    const QString &suffix = database ? databaseSuffix : archiveSuffix;
    if ((!database && line.kind() != "directory") || !key.startsWith(module + "/") || !key.endsWith(suffix)) {
        return std::nullopt;
    }
    const QString path = key.mid(module.size() + 1).chopped(suffix.size());
    // Without its suffix a component can have become "." or nothing.
    if (path.isEmpty() || ItemNames::normalizedItemPath(path) != path || (database && path.contains('/'))) {
        return std::nullopt;
    }
    return SavedItem(database ? DatabaseItem : DirectoryItem, module, path, line.priority());
}

QString SavedItem::key() const
{
    switch (kind) {
    case DatabaseItem:
        return module + "/" + path + databaseSuffix;
    case DirectoryItem:
        return module + "/" + path + archiveSuffix;
    case FileItem:
        break;
    }
    return path;
}

QString SavedItem::entrySuffix() const
{
    switch (kind) {
    case DatabaseItem:
        return ".dump.gz";
    case DirectoryItem:
        return archiveSuffix + ".gz";
    case FileItem:
        break;
    }
    return {};
}

QStringList SavedItem::entryNames() const
{
    const QString ofModule = module + "/" + path;
    QStringList names;
    if (kind == FileItem) {
        names << ItemNames::flattened(path);
    }
    names << ItemNames::flattened(ofModule) + entrySuffix()
          << ItemNames::escaped(ofModule) + "%" + entrySuffix();
    return names;
}

QString SavedItem::stagedPath() const
{
    return DevicePaths::staged(module + "/" + ItemNames::escaped(module + "/" + path) + entrySuffix());
}

QString SavedItem::livePath() const
{
    const QString live = DevicePaths::moduleData(module) + "/" + path;
    return kind == DatabaseItem ? live + databaseSuffix : live;
}
