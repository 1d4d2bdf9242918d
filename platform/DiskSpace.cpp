#include "platform/DiskSpace.h"

#include <QFile>

#include <limits>
#include <sys/statvfs.h>

DiskSpace DiskSpace::of(const QString &directory)
{
    struct statvfs status = {};
    if (statvfs(QFile::encodeName(directory).constData(), &status) != 0) {
        constexpr qint64 boundless = std::numeric_limits<qint64>::max() / 4;
        return {boundless, boundless};
    }
    const auto block = static_cast<qint64>(status.f_frsize);
    return {static_cast<qint64>(status.f_bavail) * block, static_cast<qint64>(status.f_blocks) * block};
}
