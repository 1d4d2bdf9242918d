#include "save/UploadPlan.h"

#include "catalogue/SavedItem.h"

#include <QHash>

namespace {

/// What a missing item may have been when it was saved: a directory, zipped or not.
bool belongsToDirectory(const QString &module, const ChecksumLine &line, const QSet<QString> &missingItems)
{
    const auto item = SavedItem::parse(module, line);
    if (!item || item->getKind() == DatabaseItem) {
        return false;
    }
    const bool archive = item->getKind() == DirectoryItem;
    return missingItems.contains(archive ? item->getPath() : item->getPath().section('/', 0, -2));
}

} // namespace

CompletedLines completeLines(const QString &module, const ChecksumLines &staged,
                             const ChecksumLines &previous, const QSet<QString> &savedPriorities)
{
    QHash<QString, QString> previousDigests;
    for (const ChecksumLine &line : previous) {
        previousDigests.insert(line.key(), line.digest());
    }
    CompletedLines completed;
    QSet<QString> stagedKeys;
    QSet<QString> missingItems;
    for (ChecksumLine line : staged) {
        stagedKeys << line.key();
        if (line.digest().isEmpty()) {
            missingItems << line.key();
            line.setDigest(previousDigests.value(line.key()));
            completed.takenOver << line.key();
        }
        if (!line.digest().isEmpty()) {
            completed.lines << line;
        }
    }
    for (const ChecksumLine &line : previous) {
        const bool stays =
            !savedPriorities.contains(line.priority()) || belongsToDirectory(module, line, missingItems);
        if (stays && !stagedKeys.contains(line.key())) {
            completed.lines << line;
            completed.takenOver << line.key();
        }
    }
    return completed;
}

void markNewKeys(ChecksumEntries &entries, const ChecksumLines &lines)
{
    for (const ChecksumLine &line : lines) {
        ChecksumEntry &entry = entries[line.key()];
        if (entry.status == Deleted) {
            entry.status = New;
        }
    }
}

void markRenamedKeys(const QString &module, ChecksumEntries &entries, const SavedEntries &current,
                     const SavedEntries &previous)
{
    QHash<QString, QString> previousNames;
    for (const ChecksumLine &line : previous.lines().value(module)) {
        previousNames.insert(line.key(), previous.entry(module, line).text());
    }
    for (const ChecksumLine &line : current.lines().value(module)) {
        const auto before = previousNames.constFind(line.key());
        if (before != previousNames.constEnd() && before.value() != current.entry(module, line).text()) {
            entries[line.key()].status = New;
        }
    }
}

QList<EntryRemoval> removals(const SavedEntries &current, const SavedEntries &previous)
{
    const QSet<QString> used = current.names();
    QList<EntryRemoval> gone;
    for (auto module = previous.lines().cbegin(); module != previous.lines().cend(); ++module) {
        for (const ChecksumLine &line : module.value()) {
            const ItemNames::EntryName entry = previous.entry(module.key(), line);
            if (!entry.name.isEmpty() && !used.contains(entry.text())) {
                gone << EntryRemoval{line.key(), entry};
            }
        }
    }
    return gone;
}

ChecksumLines unchangedLines(const ChecksumLines &lines, const ChecksumEntries &entries)
{
    ChecksumLines unchanged;
    for (const ChecksumLine &line : lines) {
        if (entries.value(line.key()).status == Same) {
            unchanged << line;
        }
    }
    return unchanged;
}
