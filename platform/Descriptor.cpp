#include "platform/Descriptor.h"

#include <QFile>

#include <algorithm>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <unistd.h>

Descriptor::~Descriptor()
{
    if (isOpen()) {
        close(fileNumber);
    }
}

struct stat Descriptor::status() const
{
    struct stat found = {};
    fstat(fileNumber, &found);
    return found;
}

std::optional<QByteArrayList> namesIn(const Descriptor &directory, qsizetype most)
{
    Descriptor opened(openat(directory.number(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const auto end = [](DIR *stream) { closedir(stream); };
    const std::unique_ptr<DIR, decltype(end)> stream(fdopendir(opened.number()), end);
    if (!stream) {
        return std::nullopt;
    }
    opened.release();
    QByteArrayList names;
    errno = 0;
    while (const dirent *entry = names.size() < most ? readdir(stream.get()) : nullptr) {
        const QByteArray name = entry->d_name;
        if (name != "." && name != "..") {
            names << name;
        }
        errno = 0;
    }
    if (errno != 0) {
        return std::nullopt;
    }
    std::sort(names.begin(), names.end());
    return names;
}

bool writeAll(const Descriptor &file, QByteArrayView bytes)
{
    while (!bytes.isEmpty()) {
        const ssize_t count = TEMP_FAILURE_RETRY(write(file.number(), bytes.data(), bytes.size()));
        if (count <= 0) {
            return false;
        }
        bytes = bytes.sliced(count);
    }
    return true;
}

Descriptor openedForReading(const Descriptor &found)
{
    if (!S_ISREG(found.status().st_mode)) {
        return {};
    }
    const QByteArray itself = "/proc/self/fd/" + QByteArray::number(found.number());
    return Descriptor(open(itself.constData(), O_RDONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
}

Descriptor openedRegular(const QString &path)
{
    const Descriptor found(open(QFile::encodeName(path).constData(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    return openedForReading(found);
}
