#include "platform/core/Waiter.h"
#include "restore/FreshTree.h"
#include "restore/TreeAccess.h"

#include <QFile>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <dirent.h>
#include <linux/fs.h>
#include <memory>
#include <sys/ioctl.h>
#include <unistd.h>
#include <vector>

// How a fresh tree becomes a copy of a live directory.

using namespace TreeAccess;

namespace {

constexpr size_t portion = size_t{256} * 1024;
constexpr qsizetype namedAtMost = 20;

FileMetadata metadataOf(const struct stat &status)
{
    return {status.st_uid, status.st_gid, status.st_mode & ALLPERMS, status.st_mtim};
}

} // namespace

void FreshTree::copy(const QString &directory)
{
    const Descriptor live(open(QFile::encodeName(directory).constData(), directoryFlags));
    struct stat status = {};
    require(live.isOpen() && fstat(live.number(), &status) == 0);
    ofRoot = metadataOf(status);
    QList<QByteArray> pending = {QByteArray()};
    while (!pending.isEmpty()) {
        copyDirectory(live.number(), pending.takeLast(), pending);
    }
}

void FreshTree::copyDirectory(int live, const QByteArray &path, QList<QByteArray> &pending)
{
    const Descriptor listed = openBelow(live, path);
    if (!listed.isOpen() && errno == ENOENT) {
        return; // Gone meanwhile.
    }
    const Descriptor target = openBelow(root.number(), path);
    require(listed.isOpen() && target.isOpen());
    const Change change(target.number());
    const std::unique_ptr<DIR, int (*)(DIR *)> entries(
        fdopendir(openat(listed.number(), ".", directoryFlags)), closedir);
    require(entries != nullptr);
    errno = 0;
    while (const dirent *entry = readdir(entries.get())) {
        look();
        const QByteArray name = entry->d_name;
        if (name == "." || name == ".." || name.startsWith(ownPrefix)) {
            continue;
        }
        const QByteArray whole = path.isEmpty() ? name : path + '/' + name;
        if (copyEntry(listed.number(), target.number(), name)) {
            pending << whole;
        } else if (errno == ENOTSUP && leftOut.size() < namedAtMost) {
            leftOut << QFile::decodeName(whole);
        }
        errno = 0;
    }
    require(errno == 0);
}

/// True when it is a directory, whose content is still to be copied; errno is ENOTSUP when it is nothing that
/// is copied.
bool FreshTree::copyEntry(int source, int target, const QByteArray &name)
{
    struct stat status = {};
    if (fstatat(source, name.constData(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
        require(errno == ENOENT); // Gone meanwhile.
        return false;
    }
    errno = 0;
    switch (status.st_mode & S_IFMT) {
    case S_IFREG:
        copyFile(source, target, name);
        break;
    case S_IFDIR:
        require(mkdirat(target, name.constData(), S_IRWXU) == 0);
        apply(Descriptor(openat(target, name.constData(), directoryFlags)).number(), metadataOf(status));
        return true;
    case S_IFLNK: {
        std::array<char, PATH_MAX> text = {};
        const ssize_t length = readlinkat(source, name.constData(), text.data(), text.size());
        require(length >= 0);
        const QByteArray link(text.data(), length);
        require(symlinkat(link.constData(), target, name.constData()) == 0);
        applyToLink(target, name, metadataOf(status));
        break;
    }
    default:
        errno = ENOTSUP;
        return false;
    }
    errno = 0;
    return false;
}

void FreshTree::copyFile(int source, int target, const QByteArray &name)
{
    const Descriptor from(openat(source, name.constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!from.isOpen() && errno == ENOENT) {
        return; // Gone meanwhile.
    }
    struct stat status = {};
    require(from.isOpen() && fstat(from.number(), &status) == 0);
    const Descriptor to(openat(target, name.constData(), newFileFlags, S_IRUSR | S_IWUSR));
    require(to.isOpen());
    if (ioctl(to.number(), FICLONE, from.number()) != 0) {
        copyContent(from.number(), to.number(), status.st_size);
    }
    apply(to.number(), metadataOf(status));
}

/// Holes stay holes where the file system tells where they are.
void FreshTree::copyContent(int from, int to, off_t length)
{
    std::vector<char> bytes(portion);
    off_t place = 0;
    while ((place = lseek(from, place, SEEK_DATA)) >= 0) {
        const off_t hole = lseek(from, place, SEEK_HOLE);
        require(hole >= 0);
        while (place < hole) {
            look();
            const auto wanted = std::min<off_t>(hole - place, static_cast<off_t>(bytes.size()));
            const ssize_t count = pread(from, bytes.data(), static_cast<size_t>(wanted), place);
            require(count >= 0);
            if (count == 0) {
                return; // Cut off meanwhile.
            }
            write(to, bytes.data(), static_cast<quint64>(count), static_cast<quint64>(place));
            place += count;
        }
    }
    require(errno == ENXIO && ftruncate(to, length) == 0);
}
