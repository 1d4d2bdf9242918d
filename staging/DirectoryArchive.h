#pragma once

#include "staging/ContentState.h"

#include <QByteArrayList>
#include <QString>

class Descriptor;
class Waiter;

/// What came of the archive of one directory, or of a look at what would be in it.
struct DirectoryArchive
{
    QString digest; ///< of the tar before compression; empty when there is no whole archive
    QByteArrayList
        outward; ///< links that lead out, by their paths below the directory; a restore refuses them
    QByteArrayList others; ///< what is no file, directory or link
    bool bounded = true;   ///< false when there is more than can be archived
    ContentState state;    ///< of all that would be in it, when it was only looked at
};

/// Take the digest of the archive of a directory of a module's data, and write the archive, compressed,
/// unless its path is empty. For a thread beside; ends after 30 min.
///
/// Its members are the directory and, sorted by bytes, the files, directories and links in it, under the
/// directory's own path without the slash in front. What vanishes meanwhile is left out, a file that changes
/// is cut off or filled up; one that cannot be read makes the archive fail. At most 1,000,000 entries are
/// archived, paths as long as the system takes, and no more than 1,000 things left out.
DirectoryArchive archiveDirectory(const Waiter &waiter, const Descriptor &directory, const QString &path,
                                  const QString &archive);

/// Go through the directory without reading its files: there is a state, but no digest. The state tells
/// nothing when not all is known, or is on one file system.
DirectoryArchive lookIntoDirectory(const Waiter &waiter, const Descriptor &directory, const QString &path);
