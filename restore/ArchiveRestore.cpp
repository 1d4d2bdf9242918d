#include "restore/ArchiveRestore.h"

#include "platform/core/Waiter.h"
#include "platform/logger/VYXLogger.h"
#include "restore/Replacement.h"

#include <QFile>
#include <QFileInfo>

#include <climits>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <utility>

// Members are written through descriptors of open directories, and by code of the service's own: libarchive's
// writer takes paths, which lead through directories that a module may exchange at any time, and what it
// refuses as insecure depends on the process's working directory, of which there is one for all threads.

namespace {

constexpr qsizetype namedAtMost = 20;
constexpr mode_t fileModes = S_IRWXU | S_IRWXG | S_IRWXO;
/// A directory's set-group-ID and sticky bit let nobody do more: they say whose the files in it are.
constexpr mode_t directoryModes = fileModes | S_ISGID | S_ISVTX;

/// Nine tenths of what is free in the file system that holds a path, in bytes.
quint64 roomAt(const QString &path)
{
    struct statvfs status = {};
    if (statvfs(QFile::encodeName(path).constData(), &status) != 0) {
        throw ArchiveFault{ArchiveFault::Kind::System, errno};
    }
    return static_cast<quint64>(status.f_bavail) * status.f_frsize / 10 * 9;
}

} // namespace

ArchiveRestore::ArchiveRestore(QString archive, QString directory, Waiter &waiter, quint64 limit)
    : archive(std::move(archive)), directory(std::move(directory)), paths(this->directory), waiter(waiter),
      limit(limit)
{
}

bool ArchiveRestore::restore(const QString &digest)
{
    promised = digest;
    Replacement replacement(directory);
    if (!replacement.prepare()) {
        return false;
    }
    const QString path = replacement.path();
    const auto taken = replacement.ownership(S_IFDIR);
    if (!taken) {
        return false;
    }
    const FileMetadata usual = {taken->user, taken->group, taken->mode, {0, UTIME_NOW}};
    bool built = false;
    waiter.runBeside([&] {
        try {
            build(path, QFileInfo(directory).path(), usual);
            built = true;
        } catch (const ArchiveFault &fault) {
            error = textOf(fault);
        }
    });
    if (!built || waiter.mustEnd() || !replacement.replace(waiter)) {
        replacement.discard(waiter);
        return false;
    }
    warn();
    return true;
}

void ArchiveRestore::build(const QString &path, const QString &above, const FileMetadata &usual)
{
    owner = usual;
    longestPath = PATH_MAX - 1 - (QFile::encodeName(path).size() + 1);
    file = Descriptor(
        open(QFile::encodeName(archive).constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file.isOpen()) {
        throw ArchiveFault{ArchiveFault::Kind::Broken};
    }
    room = roomAt(above);
    read([](ArchiveReader &, const ArchiveMember &) {});
    FreshTree tree(path, usual, limit, waiter);
    struct stat live = {};
    if (lstat(QFile::encodeName(directory).constData(), &live) == 0 && S_ISDIR(live.st_mode)) {
        tree.copy(directory);
    }
    room = roomAt(above);
    read([&](ArchiveReader &reader, const ArchiveMember &member) { unpack(tree, reader, member); });
    tree.finish();
    for (const QString &item : tree.notKept()) {
        leaveOut(LeftOut::NotKept, directory + "/" + item);
    }
    metadataKept = tree.metadataKept();
}

/// Have each member looked at that is good; throws when one is not, or the whole.
void ArchiveRestore::read(const Visit &visit)
{
    ArchiveReader reader(file.number(), room, waiter);
    quint64 members = 0;
    quint64 declared = 0;
    while (auto member = reader.next()) {
        if (++members > limit) {
            throw ArchiveFault{ArchiveFault::Kind::TooMany};
        }
        if (member->size > room - declared) {
            throw ArchiveFault{ArchiveFault::Kind::TooLarge};
        }
        declared += member->size;
        visit(reader, checked(std::move(*member)));
    }
    if (members == 0) {
        throw ArchiveFault{ArchiveFault::Kind::Broken};
    }
    found = reader.digest();
    if (found != promised) {
        throw ArchiveFault{ArchiveFault::Kind::OtherDigest};
    }
}

/// The member with its path, and that of a hard link's target, relative to the directory.
ArchiveMember ArchiveRestore::checked(ArchiveMember member) const
{
    const auto path = paths.relative(member.path);
    const bool hardLink = member.type == ArchiveMember::Type::HardLink;
    const auto target = hardLink ? paths.relative(member.linkTarget) : member.linkTarget;
    const bool inPlace = path && (!path->isEmpty() || member.type == ArchiveMember::Type::Directory);
    if (!inPlace || !target) {
        throw ArchiveFault{ArchiveFault::Kind::LeadsOut};
    }
    if (path->size() > longestPath || target->size() >= PATH_MAX) {
        throw ArchiveFault{ArchiveFault::Kind::PathTooLong};
    }
    member.path = *path;
    member.linkTarget = *target;
    return member;
}

void ArchiveRestore::unpack(FreshTree &tree, ArchiveReader &reader, const ArchiveMember &member)
{
    const FileMetadata metadata = {owner.user, owner.group, member.mode & directoryModes, member.modified};
    switch (member.type) {
    case ArchiveMember::Type::Directory:
        tree.makeDirectory(member.path, metadata);
        return;
    case ArchiveMember::Type::File:
        unpackFile(tree, reader, member);
        return;
    case ArchiveMember::Type::Link:
        if (paths.staysInside(member.path, member.linkTarget)) {
            tree.makeLink(member.path, member.linkTarget, metadata);
        } else {
            leaveOut(LeftOut::LinkOut, QFile::decodeName(member.path));
        }
        return;
    case ArchiveMember::Type::HardLink:
        if (!tree.makeHardLink(member.path, member.linkTarget)) {
            leaveOut(LeftOut::LinkToNoFile, QFile::decodeName(member.path));
        }
        return;
    case ArchiveMember::Type::Other:
        leaveOut(LeftOut::NoFile, QFile::decodeName(member.path));
    }
}

void ArchiveRestore::unpackFile(FreshTree &tree, ArchiveReader &reader, const ArchiveMember &member)
{
    const Descriptor made = tree.makeFile(member.path);
    while (const auto block = reader.nextBlock()) {
        if (block->offset > member.size || block->size > member.size - block->offset) {
            throw ArchiveFault{ArchiveFault::Kind::Broken};
        }
        FreshTree::write(made.number(), block->bytes, block->size, block->offset);
    }
    tree.finishFile(made.number(), member.size,
                    {owner.user, owner.group, member.mode & fileModes, member.modified});
}

void ArchiveRestore::leaveOut(LeftOut reason, const QString &path)
{
    if (leftOut.size() < namedAtMost) {
        leftOut.append({reason, path});
    } else {
        ++leftOutMore;
    }
}

void ArchiveRestore::warn() const
{
    for (const auto &[reason, path] : leftOut) {
        switch (reason) {
        case LeftOut::LinkOut:
            logWarning("Link '%1' of archive '%2' leads out of the directory and is left out", path, archive);
            break;
        case LeftOut::LinkToNoFile:
            logWarning("Link '%1' of archive '%2' is no second name of a file and is left out", path,
                       archive);
            break;
        case LeftOut::NoFile:
            logWarning("Member '%1' of archive '%2' is no file, directory or link and is left out", path,
                       archive);
            break;
        case LeftOut::NotKept:
            logWarning("'%1' is no file, directory or link and is not kept by the restore", path);
        }
    }
    if (leftOutMore > 0) {
        logWarning("Of archive '%1' %2 more members are left out", archive, leftOutMore);
    }
    if (!metadataKept) {
        logWarning("Owner or mode of '%1' could not be kept", directory);
    }
}

QString ArchiveRestore::textOf(const ArchiveFault &fault) const
{
    switch (fault.kind) {
    case ArchiveFault::Kind::Ended:
        break;
    case ArchiveFault::Kind::Broken:
        return QString("Archive '%1' is missing or broken").arg(archive);
    case ArchiveFault::Kind::LeadsOut:
        return QString("Archive '%1' is refused: it leads out of '%2'").arg(archive, directory);
    case ArchiveFault::Kind::PathTooLong:
        return QString("Archive '%1' is refused: a path in it has more than %2 bytes")
            .arg(archive, QString::number(PATH_MAX));
    case ArchiveFault::Kind::TooMany:
        return QString("Archive '%1' is refused: it has more than %2 members")
            .arg(archive, QString::number(limit));
    case ArchiveFault::Kind::TooLarge:
        return QString("Archive '%1' is refused: it unpacks to more than the %2 bytes that may be filled")
            .arg(archive, QString::number(room));
    case ArchiveFault::Kind::OtherDigest:
        return QString("Archive '%1' is not what was saved: its digest is %2, promised was %3")
            .arg(archive, found, promised);
    case ArchiveFault::Kind::System:
        return QString("Archive '%1' could not be unpacked: %2")
            .arg(archive, QString::fromLocal8Bit(std::strerror(fault.error)));
    }
    return {};
}
