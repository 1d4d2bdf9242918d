#include "catalogue/SavedEntries.h"

#include "catalogue/ItemNames.h"
#include "catalogue/SavedItem.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace {

constexpr int rankOfExactName = 3;

QString identity(const QString &module, const ChecksumLine &line)
{
    return module + "\t" + line.identity();
}

/// Gives names to items, one after the other; the order does not matter.
class Claims
{
public:
    explicit Claims(const QSet<QString> &controlFiles)
    {
        for (const QString &name : controlFiles) {
            places[name].highest = rankOfExactName;
        }
    }

    void add(const QString &item, const QStringList &names)
    {
        if (names.isEmpty() || known.contains(item)) {
            return;
        }
        known << item;
        QList<Claim> pending = {{item, names, 0}};
        while (!pending.isEmpty()) {
            pending += claim(pending.takeLast());
        }
    }

    QHash<QString, int> moved;

private:
    struct Claim
    {
        QString item;
        QStringList names;
        int number = 0;

        /// Counted from the last name.
        int rank() const
        {
            const bool plain = names.size() > 2;
            return number == names.size() - 1 ? rankOfExactName : number + (plain ? 0 : 2);
        }
    };

    struct Place
    {
        int highest = -1; ///< rank of all that have claimed the name
        std::optional<Claim> holder;
    };

    /// Those that have to go on to their next names.
    QList<Claim> claim(const Claim &claim)
    {
        Place &place = places[claim.names.at(claim.number)];
        QList<Claim> leaving;
        if (place.holder && place.holder->rank() <= claim.rank()) {
            leaving << *std::exchange(place.holder, std::nullopt);
        }
        const bool last = claim.number == claim.names.size() - 1;
        if (place.highest >= claim.rank() && !last) {
            leaving << claim;
        } else {
            place.holder = claim;
        }
        place.highest = std::max(place.highest, claim.rank());
        for (Claim &left : leaving) {
            moved[left.item] = ++left.number;
        }
        return leaving;
    }

    QHash<QString, Place> places;
    QSet<QString> known;
};

} // namespace

SavedEntries::SavedEntries(LinesByModule lines) : linesByModule(std::move(lines))
{
    QSet<QString> controlFiles = {ItemNames::modulesListName(), ItemNames::formatName()};
    for (const QString &module : linesByModule.keys()) {
        controlFiles << ItemNames::versionFileName(module) << ItemNames::checksumFileName(module)
                     << ItemNames::attributesFileName(module) << ItemNames::migrationProgramName(module);
    }
    Claims claims(controlFiles);
    for (auto module = linesByModule.cbegin(); module != linesByModule.cend(); ++module) {
        for (const ChecksumLine &line : module.value()) {
            claims.add(identity(module.key(), line), possibleNames(module.key(), line));
        }
    }
    moved = std::move(claims.moved);
}

QStringList SavedEntries::possibleNames(const QString &module, const ChecksumLine &line)
{
    if (line.isPlainFile()) {
        return SavedItem(FileItem, module, line.key(), line.priority()).entryNames();
    }
    const auto item = SavedItem::parse(module, line);
    return item ? item->entryNames() : QStringList();
}

QString SavedEntries::entry(const QString &module, const ChecksumLine &line) const
{
    return possibleNames(module, line).value(moved.value(identity(module, line)));
}

QSet<QString> SavedEntries::names() const
{
    QSet<QString> names;
    for (auto module = linesByModule.cbegin(); module != linesByModule.cend(); ++module) {
        for (const ChecksumLine &line : module.value()) {
            names << entry(module.key(), line);
        }
    }
    return names;
}
