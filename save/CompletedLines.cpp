#include "save/CompletedLines.h"

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
        previousDigests.insert(line.identity(), line.digest());
    }
    CompletedLines completed;
    QSet<QString> stagedItems;
    QSet<QString> missingItems;
    for (ChecksumLine line : staged) {
        stagedItems << line.identity();
        if (line.digest().isEmpty()) {
            missingItems << line.key();
            line.setDigest(previousDigests.value(line.identity()));
            completed.takenOver << line.identity();
        }
        if (!line.digest().isEmpty()) {
            completed.lines << line;
        }
    }
    for (const ChecksumLine &line : previous) {
        const bool stays =
            !savedPriorities.contains(line.priority()) || belongsToDirectory(module, line, missingItems);
        if (stays && !stagedItems.contains(line.identity())) {
            completed.lines << line;
            completed.takenOver << line.identity();
        }
    }
    return completed;
}

CompletedLines allTakenOver(const ChecksumLines &previous)
{
    CompletedLines completed = {previous, {}};
    for (const ChecksumLine &line : previous) {
        completed.takenOver << line.identity();
    }
    return completed;
}
