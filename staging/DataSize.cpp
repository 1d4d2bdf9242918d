#include "staging/DataSize.h"

#include <QByteArray>
#include <QFile>

#include <array>
#include <fts.h>
#include <memory>
#include <sys/stat.h>

quint64 dataSize(const QString &path)
{
    constexpr int mostEntries = 1'000'000;
    QByteArray name = QFile::encodeName(path);
    const std::array<char *, 2> roots = {name.data(), nullptr};
    const std::unique_ptr<FTS, decltype(&fts_close)> tree(
        fts_open(roots.data(), FTS_PHYSICAL | FTS_NOCHDIR | FTS_XDEV, nullptr), fts_close);
    quint64 size = 0;
    for (int entries = 0; tree && entries < mostEntries; ++entries) {
        const FTSENT *const entry = fts_read(tree.get());
        if (entry == nullptr) {
            break;
        }
        size += entry->fts_info == FTS_F ? static_cast<quint64>(entry->fts_statp->st_size) : 0;
    }
    return size;
}
