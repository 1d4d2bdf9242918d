#pragma once

#include "catalogue/ChecksumComparison.h"
#include "catalogue/SavedEntries.h"

#include <QMap>
#include <QSet>
#include <QString>

/// An entry that the repository holds no longer after the upload.
struct EntryRemoval
{
    QString key;
    ItemNames::EntryName entry;
};

/// The lines of a module's new checksum file.
struct CompletedLines
{
    ChecksumLines lines;
    QSet<QString>
        takenOver; ///< keys whose line describes what the repository holds, not what is on the device
};

/// Complete the staged lines of one module. A line without a digest takes the one that the repository has for
/// its key, or goes when there is none; a file without a digest may also have been a directory: then the
/// lines of that directory stay. Lines of the repository whose priority was not saved this time stay, too.
CompletedLines completeLines(const QString &module, const ChecksumLines &staged,
                             const ChecksumLines &previous, const QSet<QString> &savedPriorities);

/// What the comparison in save mode means for an upload: a key that is only in the new lines is `New`;
/// `Deleted` remains for keys that only the repository has.
void markNewKeys(ChecksumEntries &entries, const ChecksumLines &lines);

/// Plain files whose entry has another name than before are sent again: their entries become `New`.
void markRenamedKeys(const QString &module, ChecksumEntries &entries, const SavedEntries &current,
                     const SavedEntries &previous);

/// The previous entries that no item of the current state uses, in the order of modules and lines.
QList<EntryRemoval> removals(const SavedEntries &current, const SavedEntries &previous);

/// The lines whose items the repository already holds as they are.
ChecksumLines unchangedLines(const ChecksumLines &lines, const ChecksumEntries &entries);
