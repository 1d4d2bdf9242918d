#pragma once

#include "platform/Descriptor.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <memory>

struct libdeflate_compressor;

/// Compresses a stream into a file, as gzip members of at most 1 MiB before compression, one after the other.
///
/// The same stream makes the same bytes. Every write is checked: after one that failed all others fail, too.
class GzipWriter
{
public:
    /// Opens the file, which is emptied when it exists; its mode is left to the umask.
    explicit GzipWriter(const QString &path);

    /// False when the file is not as it should be, here and below.
    bool write(QByteArrayView bytes);

    /// Begin another member with what is written next.
    bool endMember();

    /// Nothing may be written afterwards.
    bool finish();

private:
    struct Free
    {
        void operator()(libdeflate_compressor *compressor) const;
    };

    Descriptor file;
    std::unique_ptr<libdeflate_compressor, Free> compressor;
    QByteArray plain;
    QByteArray compressed;
    bool whole = false;
};
