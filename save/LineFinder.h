#pragma once

#include "catalogue/SavedEntries.h"

#include <QHash>
#include <QString>

#include <utility>

/// Finds lines of checksum files by module and identity; of one that is repeated, the first.
class LineFinder
{
public:
    explicit LineFinder(LinesByModule lines) : held(std::move(lines))
    {
        for (auto module = held.cbegin(); module != held.cend(); ++module) {
            QHash<QString, const ChecksumLine *> &found = byIdentity[module.key()];
            for (const ChecksumLine &line : module.value()) {
                if (!found.contains(line.identity())) {
                    found.insert(line.identity(), &line);
                }
            }
        }
    }
    // The lines are looked at in this very object.
    LineFinder(const LineFinder &) = delete;
    LineFinder &operator=(const LineFinder &) = delete;

    /// Null when there is none. It stays with the finder.
    const ChecksumLine *find(const QString &module, const QString &identity) const
    {
        const auto found = byIdentity.constFind(module);
        return found == byIdentity.constEnd() ? nullptr : found->value(identity);
    }

private:
    const LinesByModule held;
    QHash<QString, QHash<QString, const ChecksumLine *>> byIdentity;
};
