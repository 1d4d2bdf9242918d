#include "commands/GzipWriter.h"

#include <QFile>

#include <algorithm>
#include <fcntl.h>
#include <libdeflate.h>
#include <unistd.h>

namespace {

constexpr int level = 6;
constexpr qsizetype memberSize = qsizetype{1024} * 1024;

} // namespace

void GzipWriter::Free::operator()(libdeflate_compressor *compressor) const
{
    libdeflate_free_compressor(compressor);
}

GzipWriter::GzipWriter(const QString &path)
    : file(open(QFile::encodeName(path).constData(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC,
                0666)),
      compressor(libdeflate_alloc_compressor(level))
{
    whole = file.isOpen() && compressor;
    if (whole) {
        plain.reserve(memberSize);
        compressed.resize(
            static_cast<qsizetype>(libdeflate_gzip_compress_bound(compressor.get(), memberSize)));
    }
}

bool GzipWriter::write(QByteArrayView bytes)
{
    while (whole && !bytes.isEmpty()) {
        const QByteArrayView part = bytes.first(std::min(bytes.size(), memberSize - plain.size()));
        plain.append(part);
        bytes = bytes.sliced(part.size());
        if (plain.size() == memberSize) {
            endMember();
        }
    }
    return whole;
}

bool GzipWriter::endMember()
{
    if (whole && !plain.isEmpty()) {
        const size_t size = libdeflate_gzip_compress(compressor.get(), plain.constData(), plain.size(),
                                                     compressed.data(), compressed.size());
        whole =
            size > 0 && writeAll(file, QByteArrayView(compressed.constData(), static_cast<qsizetype>(size)));
        plain.resize(0);
    }
    return whole;
}

bool GzipWriter::finish()
{
    endMember();
    whole = close(file.release()) == 0 && whole;
    return std::exchange(whole, false);
}
