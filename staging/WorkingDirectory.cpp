#include "staging/WorkingDirectory.h"

#include "platform/core/Waiter.h"
#include "platform/Descriptor.h"
#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"

#include <QDir>
#include <QFile>

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr mode_t forOwnerAlone = S_IRWXU;
constexpr mode_t forOthersToWrite = S_IWGRP | S_IWOTH;

/// How much a component of the path may be open to others.
enum class Use { OnTheWay, ToWorkIn };

/// True when nobody but root and this user can put something else in the place of what is in the directory.
/// One to work in needs no such mode yet: it is narrowed and emptied.
bool isOurs(const struct stat &status, Use use)
{
    const bool owned = status.st_uid == geteuid() || status.st_uid == 0;
    const bool kept = (status.st_mode & forOthersToWrite) == 0 || (status.st_mode & S_ISVTX) != 0;
    return owned && (kept || use == Use::ToWorkIn);
}

/// Open a component of a working directory; it is made when it is missing, and never a link. Not open when it
/// cannot be used, for which an error is logged if somebody else has a hand in it.
Descriptor openComponent(const Descriptor &parent, const QString &path, Use use)
{
    const QByteArray name = QFile::encodeName(path.section('/', -1));
    mkdirat(parent.number(), name.constData(), forOwnerAlone);
    Descriptor found(openat(parent.number(), name.constData(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    const struct stat status = found.status();
    if (S_ISDIR(status.st_mode) && isOurs(status, use)) {
        return found;
    }
    if (S_ISDIR(status.st_mode) || S_ISLNK(status.st_mode)) {
        logError("Working directory '%1' is not safe: it is a link, belongs to somebody else, or others may "
                 "write to it",
                 path);
    }
    return {};
}

/// The directory, for its owner alone. Only the directory above /tmp/VYXApplication may be reached by a link.
Descriptor openWorkingDirectory(const QString &path)
{
    const QString above = DevicePaths::root() + "/tmp";
    QDir().mkpath(above);
    Descriptor directory(open(QFile::encodeName(above).constData(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    QString reached = above;
    for (const QString &part : path.mid(above.size()).split('/', Qt::SkipEmptyParts)) {
        reached += "/" + part;
        directory = openComponent(directory, reached, reached == path ? Use::ToWorkIn : Use::OnTheWay);
        if (!directory.isOpen()) {
            return {};
        }
    }
    Descriptor opened(openat(directory.number(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const bool wider = (opened.status().st_mode & ALLPERMS) != forOwnerAlone;
    return wider && fchmod(opened.number(), forOwnerAlone) != 0 ? Descriptor() : std::move(opened);
}

Descriptor createWorkingDirectory(const QString &path, const char *notice)
{
    if (!QDir(path).exists()) {
        logDebug(notice, path);
    }
    return openWorkingDirectory(path);
}

Descriptor createStagingRoot()
{
    return createWorkingDirectory(DevicePaths::stagingRoot(),
                                  "Save temp directory '%1' does not exist, creating.");
}

Descriptor createRestoreDirectory()
{
    return createWorkingDirectory(DevicePaths::restoreDirectory(),
                                  "Restore temp directory '%1' does not exist, creating.");
}

/// Moves a directory to the top under a name that is free there, so that no depth costs descriptors or stack.
bool moveToTop(const Descriptor &parent, const QByteArray &name, const Descriptor &top, QByteArrayList &atTop)
{
    QByteArray moved;
    int number = 0;
    do {
        moved = "removed-" + QByteArray::number(++number);
        if (renameat2(parent.number(), name.constData(), top.number(), moved.constData(), RENAME_NOREPLACE) ==
            0) {
            atTop << moved;
            return true;
        }
    } while (errno == EEXIST);
    return false;
}

/// Remove a directory at the top; its own directories are moved there.
bool removeDirectory(const Descriptor &top, const QByteArray &name, QByteArrayList &atTop)
{
    const Descriptor directory(
        openat(top.number(), name.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    const auto names = namesIn(directory);
    if (!names) {
        return false;
    }
    for (const QByteArray &inside : *names) {
        if (unlinkat(directory.number(), inside.constData(), 0) != 0 &&
            (errno != EISDIR || !moveToTop(directory, inside, top, atTop))) {
            return false;
        }
    }
    return unlinkat(top.number(), name.constData(), AT_REMOVEDIR) == 0;
}

bool removeAllIn(const Descriptor &top)
{
    auto names = namesIn(top);
    if (!names) {
        return false;
    }
    bool removed = true;
    while (!names->isEmpty()) {
        const QByteArray name = names->takeLast();
        const bool gone = unlinkat(top.number(), name.constData(), 0) == 0 ||
                          (errno == EISDIR && removeDirectory(top, name, *names));
        removed = removed && gone;
    }
    return removed;
}

bool clean(const Descriptor &directory, Waiter &waiter)
{
    bool cleaned = false;
    if (directory.isOpen()) {
        waiter.runBeside([&] { cleaned = removeAllIn(directory); });
    }
    return cleaned;
}

} // namespace

namespace WorkingDirectory {

void createAll()
{
    createStagingRoot();
    createRestoreDirectory();
}

bool cleanStagingRoot(Waiter &waiter)
{
    return clean(createStagingRoot(), waiter);
}

bool cleanRestoreDirectory(Waiter &waiter)
{
    return clean(createRestoreDirectory(), waiter);
}

} // namespace WorkingDirectory
