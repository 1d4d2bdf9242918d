#include "restore/TreeAccess.h"

#include <QFile>
#include <QList>

#include <array>
#include <cerrno>
#include <filesystem>
#include <system_error>

namespace TreeAccess {

void require(bool succeeded)
{
    if (!succeeded) {
        throw ArchiveFault{ArchiveFault::Kind::System, errno};
    }
}

Descriptor openBelow(int root, const QByteArray &path)
{
    Descriptor directory(openat(root, ".", directoryFlags));
    for (const QByteArray &part : path.split('/')) {
        if (!part.isEmpty() && directory.isOpen()) {
            directory = Descriptor(openat(directory.number(), part.constData(), directoryFlags));
        }
    }
    return directory;
}

void removeAll(const QString &path)
{
    std::error_code error;
    std::filesystem::remove_all(QFile::encodeName(path).toStdString(), error);
}

Change::Change(int directory) : directory(directory)
{
    require(fstat(directory, &before) == 0);
    if ((before.st_mode & S_IRWXU) != S_IRWXU) {
        require(fchmod(directory, (before.st_mode & ALLPERMS) | S_IRWXU) == 0);
    }
}

Change::~Change()
{
    if ((before.st_mode & S_IRWXU) != S_IRWXU) {
        fchmod(directory, before.st_mode & ALLPERMS);
    }
    const std::array times = {before.st_atim, before.st_mtim};
    futimens(directory, times.data());
}

} // namespace TreeAccess
