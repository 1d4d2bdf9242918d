#include "commands/GzipWriter.h"

#include <QByteArray>
#include <QFile>

#include <algorithm>
#include <fcntl.h>
#include <libdeflate.h>
#include <string_view>
#include <unistd.h>
#include <utility>

using namespace std::literals;

namespace {

constexpr int level = 6;
constexpr qsizetype memberSize = qsizetype{1024} * 1024;

constexpr qsizetype longestLabel = 64;
/// Magic, deflate, a comment and nothing else, no time, any system.
constexpr auto labelHead = "\x1f\x8b\x08\x10\0\0\0\0\0\xff"sv;

} // namespace

QByteArray gzipLabel(const QString &path)
{
    const Descriptor file(
        open(QFile::encodeName(path).constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    QByteArray head(labelHead.size() + longestLabel + 1, '\0');
    const ssize_t size = read(file.number(), head.data(), static_cast<size_t>(head.size()));
    head.truncate(std::max<ssize_t>(size, 0));
    const qsizetype begin = labelHead.size();
    const qsizetype end = head.indexOf('\0', begin);
    return head.startsWith(QByteArrayView(labelHead)) && end > begin ? head.mid(begin, end - begin)
                                                                     : QByteArray();
}

struct GzipWriter::Workspace
{
    struct FreeCompressor
    {
        void operator()(libdeflate_compressor *compressor) const { libdeflate_free_compressor(compressor); }
    };

    std::unique_ptr<libdeflate_compressor, FreeCompressor> compressor{libdeflate_alloc_compressor(level)};
    QByteArray plain;
    QByteArray compressed;
};

void GzipWriter::Free::operator()(Workspace *workspace) const
{
    delete workspace;
}

GzipWriter::WorkspacePointer &GzipWriter::spare()
{
    thread_local WorkspacePointer kept;
    return kept;
}

GzipWriter::GzipWriter(const QString &path)
    : file(open(QFile::encodeName(path).constData(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC,
                0666)),
      workspace(std::move(spare()))
{
    if (!workspace) {
        workspace.reset(new Workspace);
    }
    whole = file.isOpen() && workspace->compressor;
    if (whole) {
        workspace->plain.reserve(memberSize);
        workspace->plain.resize(0);
        workspace->compressed.resize(
            static_cast<qsizetype>(libdeflate_gzip_compress_bound(workspace->compressor.get(), memberSize)));
    }
}

GzipWriter::~GzipWriter()
{
    spare() = std::move(workspace);
}

bool GzipWriter::write(QByteArrayView bytes)
{
    while (whole && !bytes.isEmpty()) {
        QByteArray &plain = workspace->plain;
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
    QByteArray &plain = workspace->plain;
    if (whole && !plain.isEmpty()) {
        QByteArray &compressed = workspace->compressed;
        const size_t size = libdeflate_gzip_compress(workspace->compressor.get(), plain.constData(),
                                                     plain.size(), compressed.data(), compressed.size());
        whole =
            size > 0 && writeAll(file, QByteArrayView(compressed.constData(), static_cast<qsizetype>(size)));
        plain.resize(0);
    }
    return whole;
}

bool GzipWriter::label(const QByteArray &text)
{
    constexpr auto emptyBlock = "\x03\0\0\0\0\0\0\0\0\0"sv; // with checksum and length
    const QByteArray member = QByteArrayView(labelHead).toByteArray() +
                              text.first(std::min(text.size(), longestLabel)) + QByteArray(1, '\0') +
                              QByteArrayView(emptyBlock).toByteArray();
    endMember();
    whole = whole && writeAll(file, member);
    return whole;
}

bool GzipWriter::finish()
{
    endMember();
    whole = close(file.release()) == 0 && whole;
    return std::exchange(whole, false);
}
