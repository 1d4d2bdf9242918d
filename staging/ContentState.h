#pragma once

#include <QByteArray>

#include <sys/stat.h>

/// What the file system tells of a file, or of all that is in a directory: as long as it stays the same, so
/// does the content.
struct ContentState
{
    /// Device, inode, size, mode and time stamps of a file, or a digest of those of many; empty when they
    /// tell nothing.
    QByteArray text;
    dev_t device = 0;
    qint64 youngest = 0;     ///< the latest time stamp, in ns since the epoch
    qint64 oldestChange = 0; ///< the earliest change of an inode, in ns since the epoch

    bool operator==(const ContentState &other) const { return text == other.text; }
};

/// Of what a descriptor or a name stands for; its size of no more than 48 bytes.
ContentState contentState(const struct stat &status);

/// In ns since the epoch.
qint64 nanosecondsOf(const timespec &time);
