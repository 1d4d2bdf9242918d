#include "restore/ArchiveReader.h"

#include "platform/core/Waiter.h"

#include <archive.h>
#include <archive_entry.h>
#include <unistd.h>

namespace {

/// A name of an archive in the archive's own bytes, or in UTF-8 when it is told in that only.
QByteArray nameOf(const char *bytes, const char *utf8)
{
    return bytes != nullptr ? QByteArray(bytes) : QByteArray(utf8);
}

ArchiveMember::Type typeOf(archive_entry *entry)
{
    if (archive_entry_hardlink(entry) != nullptr || archive_entry_hardlink_utf8(entry) != nullptr) {
        return ArchiveMember::Type::HardLink;
    }
    switch (archive_entry_filetype(entry)) {
    case AE_IFREG:
        return ArchiveMember::Type::File;
    case AE_IFDIR:
        return ArchiveMember::Type::Directory;
    case AE_IFLNK:
        return ArchiveMember::Type::Link;
    default:
        return ArchiveMember::Type::Other;
    }
}

} // namespace

void ArchiveReader::Free::operator()(archive *reader) const
{
    archive_read_free(reader);
}

ArchiveReader::ArchiveReader(int file, quint64 limit, const Waiter &waiter)
    : waiter(waiter), limit(limit), gzip(file), tar(archive_read_new())
{
    const bool opened = lseek(file, 0, SEEK_SET) == 0 &&
                        archive_read_support_format_tar(tar.get()) == ARCHIVE_OK &&
                        archive_read_open(tar.get(), this, nullptr, readPlain, nullptr) == ARCHIVE_OK;
    if (!opened) {
        fail();
    }
}

ssize_t ArchiveReader::readPlain(archive *, void *self, const void **bytes)
{
    return static_cast<ArchiveReader *>(self)->decompress(bytes);
}

/// The size of the next block of the uncompressed archive, 0 at its end, negative when there is none.
ssize_t ArchiveReader::decompress(const void **bytes)
{
    if (waiter.mustEnd()) {
        fault = ArchiveFault::Kind::Ended;
        return -1;
    }
    const auto block = gzip.next();
    if (!block) {
        return -1;
    }
    decompressed += static_cast<quint64>(block->size());
    if (decompressed > limit) {
        fault = ArchiveFault::Kind::TooLarge;
        return -1;
    }
    hash.addData(*block);
    *bytes = block->data();
    return block->size();
}

void ArchiveReader::fail() const
{
    throw ArchiveFault{fault};
}

std::optional<ArchiveMember> ArchiveReader::next()
{
    archive_entry *entry = nullptr;
    const int result = archive_read_next_header(tar.get(), &entry);
    if (result == ARCHIVE_EOF) {
        return std::nullopt;
    }
    if (result != ARCHIVE_OK && result != ARCHIVE_WARN) {
        fail();
    }
    ArchiveMember member;
    member.type = typeOf(entry);
    member.path = nameOf(archive_entry_pathname(entry), archive_entry_pathname_utf8(entry));
    if (member.type == ArchiveMember::Type::HardLink) {
        member.linkTarget = nameOf(archive_entry_hardlink(entry), archive_entry_hardlink_utf8(entry));
    } else if (member.type == ArchiveMember::Type::Link) {
        member.linkTarget = nameOf(archive_entry_symlink(entry), archive_entry_symlink_utf8(entry));
    }
    const bool link =
        member.type == ArchiveMember::Type::Link || member.type == ArchiveMember::Type::HardLink;
    const la_int64_t size = archive_entry_size(entry);
    if (member.path.isEmpty() || size < 0 || (link && member.linkTarget.isEmpty())) {
        fail();
    }
    member.size = static_cast<quint64>(size);
    member.mode = archive_entry_perm(entry);
    member.modified = {archive_entry_mtime(entry), archive_entry_mtime_nsec(entry)};
    return member;
}

std::optional<ArchiveBlock> ArchiveReader::nextBlock()
{
    const void *bytes = nullptr;
    size_t size = 0;
    la_int64_t offset = 0;
    const int result = archive_read_data_block(tar.get(), &bytes, &size, &offset);
    if (result == ARCHIVE_EOF) {
        return std::nullopt;
    }
    if (result != ARCHIVE_OK || offset < 0) {
        fail();
    }
    return ArchiveBlock{static_cast<const char *>(bytes), size, static_cast<quint64>(offset)};
}

QString ArchiveReader::digest()
{
    const void *bytes = nullptr;
    ssize_t size = 0;
    while ((size = decompress(&bytes)) > 0) {
    }
    if (size < 0) {
        fail();
    }
    return QString::fromLatin1(hash.result().toHex());
}
