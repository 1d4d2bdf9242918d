#include "platform/WholeFile.h"

#include "platform/Descriptor.h"

#include <QFile>

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

bool writeWholeFile(const QString &path, const QByteArray &content, WholeFile lasting)
{
    const QByteArray name = QFile::encodeName(path);
    const QByteArray fresh = name + ".new";
    constexpr mode_t usual = 0666;
    Descriptor file(open(fresh.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, usual));
    if (!file.isOpen()) {
        return false;
    }
    const bool written =
        writeAll(file, content) && (lasting == WholeFile::Passing || fdatasync(file.number()) == 0);
    const bool closed = close(file.release()) == 0;
    const bool replaced = written && closed && std::rename(fresh.constData(), name.constData()) == 0;
    if (!replaced) {
        unlink(fresh.constData());
    }
    return replaced;
}
