#include "staging/TarWriter.h"

#include <archive.h>
#include <archive_entry.h>
#include <utility>

namespace {

constexpr int blockSize = 64 * 1024;
constexpr mode_t setIdBits = S_ISUID | S_ISGID;

using Entry = std::unique_ptr<archive_entry, decltype(&archive_entry_free)>;

Entry entryOf(const QByteArray &member, const struct stat &status)
{
    Entry entry(archive_entry_new(), archive_entry_free);
    archive_entry_copy_pathname(entry.get(), member.constData());
    archive_entry_set_mode(entry.get(), status.st_mode & ~setIdBits);
    archive_entry_set_size(entry.get(), S_ISREG(status.st_mode) ? status.st_size : 0);
    archive_entry_set_uid(entry.get(), status.st_uid);
    archive_entry_set_gid(entry.get(), status.st_gid);
    archive_entry_set_mtime(entry.get(), status.st_mtim.tv_sec, 0);
    return entry;
}

} // namespace

/// Only closing gives the buffer of what was not finished back.
void TarWriter::Free::operator()(archive *writer) const
{
    archive_write_close(writer);
    archive_write_free(writer);
}

TarWriter::TarWriter(const QString &path, std::function<bool()> mayGoOn)
    : mayGoOn(std::move(mayGoOn)), tar(archive_write_new())
{
    if (!path.isEmpty()) {
        target.emplace(path);
    }
    whole = archive_write_set_format_gnutar(tar.get()) == ARCHIVE_OK &&
            archive_write_set_bytes_per_block(tar.get(), blockSize) == ARCHIVE_OK &&
            archive_write_set_bytes_in_last_block(tar.get(), 1) == ARCHIVE_OK &&
            archive_write_open(tar.get(), this, nullptr, writeBlock, nullptr) == ARCHIVE_OK;
}

/// What was not finished is not written any more.
TarWriter::~TarWriter()
{
    whole = false;
}

ssize_t TarWriter::writeBlock(archive *, void *self, const void *bytes, size_t size)
{
    const QByteArrayView block(static_cast<const char *>(bytes), static_cast<qsizetype>(size));
    return static_cast<TarWriter *>(self)->store(block) ? block.size() : -1;
}

bool TarWriter::store(QByteArrayView block)
{
    hash.addData(block);
    return whole && mayGoOn() && (!target || target->write(block));
}

bool TarWriter::add(const QByteArray &member, const struct stat &status)
{
    whole = whole && archive_write_header(tar.get(), entryOf(member, status).get()) == ARCHIVE_OK;
    return whole;
}

bool TarWriter::addLink(const QByteArray &member, const struct stat &status, const QByteArray &target)
{
    const Entry entry = entryOf(member, status);
    archive_entry_copy_symlink(entry.get(), target.constData());
    whole = whole && archive_write_header(tar.get(), entry.get()) == ARCHIVE_OK;
    return whole;
}

bool TarWriter::write(QByteArrayView bytes)
{
    whole = whole && archive_write_data(tar.get(), bytes.data(), bytes.size()) >= 0;
    return whole;
}

QString TarWriter::finish()
{
    whole = whole && archive_write_close(tar.get()) == ARCHIVE_OK;
    whole = (!target || target->finish()) && whole;
    return whole ? QString::fromLatin1(hash.result().toHex()) : QString();
}
