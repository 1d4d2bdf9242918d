#pragma once

#include "platform/Descriptor.h"
#include "restore/ArchiveFault.h"

#include <QByteArray>
#include <QString>

#include <fcntl.h>
#include <sys/stat.h>

/// How the directories of a tree are reached and changed.
namespace TreeAccess {

constexpr int directoryFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
constexpr int newFileFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;

/// Throws an ArchiveFault with errno unless the call succeeded.
void require(bool succeeded);

/// A directory below another one; none, with errno, when a component of the path is no directory.
Descriptor openBelow(int root, const QByteArray &path);

/// Remove a file, a link, or a directory with all that is in it, whatever bytes its names have; no link is
/// followed. What cannot be removed stays.
void removeAll(const QString &path);

/// While it lives its owner may change a directory; then the directory's mode and time are again what they
/// were.
class Change
{
public:
    /// The open directory has to outlive the object. Throws an ArchiveFault.
    explicit Change(int directory);
    ~Change();

    Change(const Change &) = delete;
    Change &operator=(const Change &) = delete;

private:
    int directory;
    struct stat before = {};
};

} // namespace TreeAccess
