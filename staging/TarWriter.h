#pragma once

#include "commands/GzipWriter.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QCryptographicHash>
#include <QString>

#include <functional>
#include <memory>
#include <optional>
#include <sys/stat.h>
#include <sys/types.h>

struct archive;

/// Computes the digest of a GNU tar, and writes it into a gzip-compressed file if there is to be one. The
/// same members make the same bytes, whatever the locale, the file system and the names of users.
class TarWriter
{
public:
    /// With an empty path nothing is written. `mayGoOn` is asked before each block of the tar; no more is
    /// written when it says no.
    TarWriter(const QString &path, std::function<bool()> mayGoOn);
    ~TarWriter();
    TarWriter(const TarWriter &) = delete;
    TarWriter &operator=(const TarWriter &) = delete;

    /// A directory or regular file, whose content follows. Of the status its kind, size, permissions without
    /// set-id bits, owner's numbers and time of modification in seconds count. False when the archive is not
    /// as it should be, here and below.
    bool add(const QByteArray &member, const struct stat &status);
    bool addLink(const QByteArray &member, const struct stat &status, const QByteArray &target);

    /// Content of the file: what is beyond its size is cut off, what is missing is filled up with zeros.
    bool write(QByteArrayView bytes);

    /// The digest as in a checksum file, empty when the archive is not whole. Nothing may be written
    /// afterwards.
    QString finish();

private:
    struct Free
    {
        void operator()(archive *writer) const;
    };

    static ssize_t writeBlock(archive *writer, void *self, const void *bytes, size_t size);
    bool store(QByteArrayView block);

    std::function<bool()> mayGoOn;
    std::optional<GzipWriter> target;
    QCryptographicHash hash{QCryptographicHash::Md5};
    bool whole;
    std::unique_ptr<archive, Free> tar; ///< goes first: it uses the others
};
