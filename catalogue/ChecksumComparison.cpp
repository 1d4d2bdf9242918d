#include "catalogue/ChecksumComparison.h"

#include <QHash>

ChecksumEntries compareChecksumLines(const ChecksumLines &local, const ChecksumLines &repository,
                                     bool forSave)
{
    const ChecksumStatus unmatched = forSave ? Deleted : New;
    ChecksumEntries entries;
    QHash<QString, QString> localDigests;
    for (const ChecksumLine &line : local) {
        localDigests.insert(line.key(), line.digest());
        entries.insert(line.key(), {unmatched, line.priority(), line.kind()});
    }
    for (const ChecksumLine &line : repository) {
        const auto known = localDigests.constFind(line.key());
        if (known == localDigests.constEnd()) {
            entries.insert(line.key(), {unmatched, line.priority(), line.kind()});
        } else {
            entries[line.key()].status = known.value() == line.digest() ? Same : Updated;
        }
    }
    return entries;
}
