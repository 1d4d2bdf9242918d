#pragma once

#include <QString>

/// The room in the file system of a path, in bytes.
struct DiskSpace
{
    qint64 available = 0; ///< for a process without privileges
    qint64 total = 0;

    /// Of the file system that a directory lies on, whatever is mounted where. One that cannot be asked has
    /// boundless room: what is written to it then fails by itself.
    static DiskSpace of(const QString &directory);
};
