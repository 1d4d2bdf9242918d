#pragma once

#include "catalogue/ChecksumFile.h"

#include <QSet>
#include <QString>

/// The lines of a module's new checksum file.
struct CompletedLines
{
    ChecksumLines lines;
    QSet<QString>
        takenOver; ///< items whose line describes what the repository holds, not what is on the device
};

/// Complete the staged lines of one module. A line without a digest takes the one that the repository has for
/// its key, or goes when there is none; a file without a digest may also have been a directory: then the
/// lines of that directory stay. Lines of the repository whose priority was not saved this time stay, too.
CompletedLines completeLines(const QString &module, const ChecksumLines &staged,
                             const ChecksumLines &previous, const QSet<QString> &savedPriorities);

/// The lines of a module of which nothing was staged: all as the repository has them.
CompletedLines allTakenOver(const ChecksumLines &previous);
