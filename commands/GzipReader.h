#pragma once

#include <QByteArray>
#include <QByteArrayView>

#include <memory>
#include <optional>

struct z_stream_s;

/// Decompresses a gzip file, one member after the other, in blocks. May be used in any thread.
///
/// A file that is cut off, or empty, a member whose checksum or length is another one, and whatever else
/// stands behind the last member make it broken; so do more than 1,000 empty members in a row.
class GzipReader
{
public:
    /// Reads the open file on from where it stands; it must outlive the object.
    explicit GzipReader(int file);

    /// The next block, empty behind the last one; nothing when the file is broken. The bytes belong to the
    /// reader, until its next call.
    std::optional<QByteArrayView> next();

private:
    struct Free
    {
        void operator()(z_stream_s *stream) const;
    };

    bool fill();

    int file;
    std::unique_ptr<z_stream_s, Free> stream;
    QByteArray compressed;
    QByteArray plain;
    bool within = true; ///< a member, the first one also before its beginning
    bool broken = false;
    int emptyMembers = 0; ///< in a row
};
