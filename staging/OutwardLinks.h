#pragma once

#include "platform/Beneath.h"

#include <QByteArrayList>
#include <QString>

/// The links in a directory of a module's data that lead out of that directory. A restore refuses an archive
/// that holds one.
struct OutwardLinks
{
    QByteArrayList links; ///< paths below the directory
    bool complete = true; ///< false when there are more than can be handled
};

/// Looks through at most 1,000,000 entries and for at most 1,000 links, whose names must have no line break
/// and no space at their end. Directories that cannot be read are passed over. `path` is that of the
/// directory.
OutwardLinks outwardLinks(const Descriptor &directory, const QString &path);
