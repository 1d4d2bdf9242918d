#include "commands/GzipReader.h"

#include <cerrno>
#include <unistd.h>
#include <zlib.h>

namespace {

constexpr qsizetype blockSize = qsizetype{64} * 1024;
constexpr int gzipAlone = 16 + MAX_WBITS;
constexpr int mostEmpty = 1000; ///< members in a row; millions of them would keep a reader busy for nothing

} // namespace

void GzipReader::Free::operator()(z_stream_s *stream) const
{
    inflateEnd(stream);
    delete stream;
}

GzipReader::GzipReader(int file)
    : file(file), stream(new z_stream_s()), compressed(blockSize, Qt::Uninitialized),
      plain(blockSize, Qt::Uninitialized)
{
    broken = inflateInit2(stream.get(), gzipAlone) != Z_OK;
}

/// False at the end of the file, which is none within a member.
bool GzipReader::fill()
{
    const ssize_t count = TEMP_FAILURE_RETRY(read(file, compressed.data(), compressed.size()));
    broken = count < 0 || (count == 0 && within);
    stream->next_in = reinterpret_cast<Bytef *>(compressed.data());
    stream->avail_in = count > 0 ? static_cast<uInt>(count) : 0;
    return count > 0;
}

std::optional<QByteArrayView> GzipReader::next()
{
    stream->next_out = reinterpret_cast<Bytef *>(plain.data());
    stream->avail_out = static_cast<uInt>(plain.size());
    while (!broken && stream->avail_out > 0 && (stream->avail_in > 0 || fill())) {
        broken = !within && inflateReset(stream.get()) != Z_OK;
        const int result = broken ? Z_STREAM_ERROR : inflate(stream.get(), Z_NO_FLUSH);
        within = result != Z_STREAM_END;
        emptyMembers = within || stream->total_out > 0 ? 0 : emptyMembers + 1;
        broken = (within && result != Z_OK) || emptyMembers > mostEmpty;
    }
    if (broken) {
        return std::nullopt;
    }
    return QByteArrayView(plain.constData(), plain.size() - static_cast<qsizetype>(stream->avail_out));
}
