#include "catalogue/ChecksumComparison.h"

#include <QHash>

ChecksumEntries compareChecksumLines(const ChecksumLines &local, const ChecksumLines &repository,
                                     bool forSave)
{
    const ChecksumStatus unmatched = forSave ? Deleted : New;
    ChecksumEntries entries;
    QHash<QString, QString> localDigests;
    for (const ChecksumLine &line : local) {
        localDigests.insert(line.identity(), line.digest());
        entries.insert(line.identity(), {unmatched, line.priority(), line.kind()});
    }
    for (const ChecksumLine &line : repository) {
        const auto known = localDigests.constFind(line.identity());
        if (known == localDigests.constEnd()) {
            entries.insert(line.identity(), {unmatched, line.priority(), line.kind()});
        } else {
            entries[line.identity()].status = known.value() == line.digest() ? Same : Updated;
        }
    }
    return entries;
}
