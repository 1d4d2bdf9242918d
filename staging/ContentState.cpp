#include "staging/ContentState.h"

#include <algorithm>
#include <array>

qint64 nanosecondsOf(const timespec &time)
{
    constexpr qint64 ofSecond = 1'000'000'000;
    return time.tv_sec * ofSecond + time.tv_nsec;
}

ContentState contentState(const struct stat &status)
{
    if (status.st_ino == 0) {
        return {};
    }
    const qint64 modified = nanosecondsOf(status.st_mtim);
    const qint64 changed = nanosecondsOf(status.st_ctim);
    const std::array numbers = {static_cast<qint64>(status.st_dev),
                                static_cast<qint64>(status.st_ino),
                                static_cast<qint64>(status.st_size),
                                static_cast<qint64>(status.st_mode),
                                modified,
                                changed};
    return {.text = QByteArray(reinterpret_cast<const char *>(numbers.data()), sizeof numbers),
            .device = status.st_dev,
            .youngest = std::max(modified, changed),
            .oldestChange = changed};
}
