#include "restore/ArchivePaths.h"

#include "catalogue/ItemNames.h"

#include <QFile>

#include <algorithm>

namespace {

QList<QByteArray> components(const QByteArray &path)
{
    QList<QByteArray> parts = path.split('/');
    parts.removeIf([](const QByteArray &part) { return part.isEmpty() || part == "."; });
    return parts;
}

} // namespace

ArchivePaths::ArchivePaths(const QString &directory)
    : directory(components(QFile::encodeName(directory))),
      ownPrefix(QFile::encodeName(ItemNames::ownPrefix()))
{
}

std::optional<QByteArray> ArchivePaths::relative(const QByteArray &member) const
{
    const QList<QByteArray> parts = components(member);
    const QList<QByteArray> below = parts.mid(directory.size());
    const bool own = std::any_of(below.cbegin(), below.cend(),
                                 [this](const QByteArray &part) { return part.startsWith(ownPrefix); });
    if (parts.first(std::min(parts.size(), directory.size())) != directory || parts.contains("..") || own) {
        return std::nullopt;
    }
    return below.join('/');
}

bool ArchivePaths::staysInside(const QByteArray &link, const QByteArray &target) const
{
    QList<QByteArray> place;
    if (!target.startsWith('/')) {
        place = directory + components(link);
        place.removeLast();
    }
    bool named = false;
    for (const QByteArray &part : components(target)) {
        if (part != "..") {
            named = true;
            place << part;
            continue;
        }
        if (named || place.isEmpty()) {
            return false;
        }
        place.removeLast();
    }
    return place.size() >= directory.size() && place.first(directory.size()) == directory;
}
