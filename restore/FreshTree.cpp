#include "restore/FreshTree.h"

#include "catalogue/ItemNames.h"
#include "platform/core/Waiter.h"
#include "restore/TreeAccess.h"

#include <QFile>

#include <array>
#include <cerrno>
#include <cstdio>
#include <fts.h>
#include <memory>
#include <unistd.h>
#include <utility>

using namespace TreeAccess;

namespace {

constexpr mode_t setId = S_ISUID | S_ISGID;

QByteArray lastOf(const QByteArray &path)
{
    return path.mid(path.lastIndexOf('/') + 1);
}

} // namespace

FreshTree::FreshTree(const QString &path, const FileMetadata &usual, quint64 limit, const Waiter &waiter)
    : waiter(waiter), usual(usual), limit(limit), ownPrefix(QFile::encodeName(ItemNames::ownPrefix())),
      ofRoot(usual)
{
    const QByteArray name = QFile::encodeName(path);
    require(mkdir(name.constData(), S_IRWXU) == 0);
    root = Descriptor(open(name.constData(), directoryFlags));
    require(root.isOpen());
}

void FreshTree::look() const
{
    if (waiter.mustEnd()) {
        throw ArchiveFault{ArchiveFault::Kind::Ended};
    }
}

void FreshTree::apply(int file, const FileMetadata &metadata)
{
    struct stat status = {};
    require(fstat(file, &status) == 0);
    const bool owned = (status.st_uid == metadata.user && status.st_gid == metadata.group) ||
                       fchown(file, metadata.user, metadata.group) == 0;
    // Another's rights are nothing to lend to whoever owns the file instead.
    const mode_t mode = owned ? metadata.mode : metadata.mode & ~setId;
    const std::array times = {metadata.modified, metadata.modified};
    const bool rest = fchmod(file, mode) == 0 && futimens(file, times.data()) == 0;
    kept = kept && owned && rest;
}

void FreshTree::applyToLink(int parent, const QByteArray &name, const FileMetadata &metadata)
{
    struct stat status = {};
    require(fstatat(parent, name.constData(), &status, AT_SYMLINK_NOFOLLOW) == 0);
    const bool owned =
        (status.st_uid == metadata.user && status.st_gid == metadata.group) ||
        fchownat(parent, name.constData(), metadata.user, metadata.group, AT_SYMLINK_NOFOLLOW) == 0;
    const std::array times = {metadata.modified, metadata.modified};
    utimensat(parent, name.constData(), times.data(), AT_SYMLINK_NOFOLLOW);
    kept = kept && owned;
}

/// The directory that the last component of a path belongs into; it is made when it is missing.
Descriptor FreshTree::openParent(const QByteArray &path)
{
    look();
    Descriptor directory(openat(root.number(), ".", directoryFlags));
    QList<QByteArray> parts = path.split('/');
    parts.removeLast();
    for (const QByteArray &part : std::as_const(parts)) {
        int next = openat(directory.number(), part.constData(), directoryFlags);
        if (next < 0 && errno == ENOENT) {
            makeDirectoryIn(directory.number(), part, usual);
            next = openat(directory.number(), part.constData(), directoryFlags);
        }
        if (next < 0) {
            const int error = errno;
            struct stat status = {};
            const bool link =
                fstatat(directory.number(), part.constData(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
                S_ISLNK(status.st_mode);
            throw link ? ArchiveFault{ArchiveFault::Kind::LeadsOut}
                       : ArchiveFault{ArchiveFault::Kind::System, error};
        }
        directory = Descriptor(next);
    }
    return directory;
}

void FreshTree::makeDirectoryIn(int parent, const QByteArray &name, const FileMetadata &metadata)
{
    if (++made > limit) {
        throw ArchiveFault{ArchiveFault::Kind::TooMany};
    }
    const Change change(parent);
    require(mkdirat(parent, name.constData(), S_IRWXU) == 0);
    apply(Descriptor(openat(parent, name.constData(), directoryFlags)).number(), metadata);
}

/// Remove what has a name in an open directory, if anything has.
void FreshTree::removeIn(int parent, const QByteArray &name)
{
    if (unlinkat(parent, name.constData(), 0) == 0 || errno == ENOENT) {
        return;
    }
    require(errno == EISDIR);
    QByteArray path = "/proc/self/fd/" + QByteArray::number(parent) + '/' + name;
    const std::array<char *, 2> paths = {path.data(), nullptr};
    const std::unique_ptr<FTS, int (*)(FTS *)> entries(
        fts_open(paths.data(), FTS_PHYSICAL | FTS_NOCHDIR, nullptr), fts_close);
    require(entries != nullptr);
    while (const FTSENT *entry = fts_read(entries.get())) {
        look();
        if (entry->fts_info == FTS_D) {
            chmod(entry->fts_accpath, S_IRWXU);
        } else {
            require(std::remove(entry->fts_accpath) == 0);
        }
    }
}

void FreshTree::makeDirectory(const QByteArray &path, const FileMetadata &metadata)
{
    if (path.isEmpty()) {
        ofRoot = metadata;
        return;
    }
    const Descriptor parent = openParent(path);
    const QByteArray name = lastOf(path);
    const Descriptor there(openat(parent.number(), name.constData(), directoryFlags));
    if (there.isOpen()) {
        apply(there.number(), metadata);
        return;
    }
    const Change change(parent.number());
    removeIn(parent.number(), name);
    makeDirectoryIn(parent.number(), name, metadata);
}

Descriptor FreshTree::makeFile(const QByteArray &path)
{
    const Descriptor parent = openParent(path);
    const QByteArray name = lastOf(path);
    const Change change(parent.number());
    removeIn(parent.number(), name);
    Descriptor file(openat(parent.number(), name.constData(), newFileFlags, S_IRUSR | S_IWUSR));
    require(file.isOpen());
    return file;
}

void FreshTree::write(int file, const char *bytes, quint64 size, quint64 offset)
{
    while (size > 0) {
        const ssize_t count = pwrite(file, bytes, static_cast<size_t>(size), static_cast<off_t>(offset));
        require(count > 0);
        bytes += count;
        size -= static_cast<quint64>(count);
        offset += static_cast<quint64>(count);
    }
}

void FreshTree::finishFile(int file, quint64 length, const FileMetadata &metadata)
{
    require(ftruncate(file, static_cast<off_t>(length)) == 0);
    apply(file, metadata);
}

void FreshTree::makeLink(const QByteArray &path, const QByteArray &target, const FileMetadata &metadata)
{
    const Descriptor parent = openParent(path);
    const QByteArray name = lastOf(path);
    const Change change(parent.number());
    removeIn(parent.number(), name);
    require(symlinkat(target.constData(), parent.number(), name.constData()) == 0);
    applyToLink(parent.number(), name, metadata);
}

bool FreshTree::makeHardLink(const QByteArray &path, const QByteArray &target)
{
    const Descriptor first =
        openBelow(root.number(), target.left(std::max<qsizetype>(target.lastIndexOf('/'), 0)));
    const QByteArray firstName = lastOf(target);
    struct stat status = {};
    if (!first.isOpen() ||
        fstatat(first.number(), firstName.constData(), &status, AT_SYMLINK_NOFOLLOW) != 0 ||
        !S_ISREG(status.st_mode)) {
        return false;
    }
    if (path == target) {
        return true;
    }
    const Descriptor parent = openParent(path);
    const QByteArray name = lastOf(path);
    const Change change(parent.number());
    removeIn(parent.number(), name);
    require(linkat(first.number(), firstName.constData(), parent.number(), name.constData(), 0) == 0);
    return true;
}

void FreshTree::finish()
{
    apply(root.number(), ofRoot);
}
