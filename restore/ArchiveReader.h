#pragma once

#include "commands/GzipReader.h"
#include "restore/ArchiveFault.h"

#include <QByteArray>
#include <QCryptographicHash>
#include <QString>

#include <ctime>
#include <memory>
#include <optional>
#include <sys/types.h>

class Waiter;
struct archive;

/// One member of a tar archive, as the archive names it.
struct ArchiveMember
{
    enum class Type {
        Directory,
        File,
        Link,
        HardLink,
        Other, ///< a device, a FIFO, a socket
    };

    Type type = Type::Other;
    QByteArray path;
    QByteArray linkTarget; ///< of a symbolic or hard link
    quint64 size = 0;      ///< bytes, as declared, holes included
    mode_t mode = 0;       ///< permissions, set-id and sticky bits
    timespec modified = {};
};

/// A piece of a file's content; the bytes belong to the reader, until its next call.
struct ArchiveBlock
{
    const char *bytes;
    quint64 size;
    quint64 offset;
};

/// Reads a gzip-compressed tar archive in one go, in blocks, and computes the digest of all that was
/// compressed. May be used beside the main thread. Every call throws an ArchiveFault: Ended when the waiter
/// has to end, TooLarge when more than the limit was decompressed, Broken.
class ArchiveReader
{
public:
    /// The open file is read from its beginning and must, as the waiter, outlive the object. The limit is in
    /// bytes.
    ArchiveReader(int file, quint64 limit, const Waiter &waiter);

    ArchiveReader(const ArchiveReader &) = delete;
    ArchiveReader &operator=(const ArchiveReader &) = delete;

    /// The next member, nothing behind the last one.
    std::optional<ArchiveMember> next();

    /// The next piece of the content of the member that was read last, nothing behind the last one.
    std::optional<ArchiveBlock> nextBlock();

    /// MD5 of the uncompressed archive, up to its very end: 32 lower-case hexadecimal digits. Ends the
    /// reading.
    QString digest();

private:
    struct Free
    {
        void operator()(archive *reader) const;
    };

    static ssize_t readPlain(archive *, void *self, const void **bytes);
    ssize_t decompress(const void **bytes);
    [[noreturn]] void fail() const;

    const Waiter &waiter;
    const quint64 limit;
    quint64 decompressed = 0;
    QCryptographicHash hash{QCryptographicHash::Md5};
    ArchiveFault::Kind fault = ArchiveFault::Kind::Broken; ///< of a read that fails
    GzipReader gzip;
    std::unique_ptr<archive, Free> tar;
};
