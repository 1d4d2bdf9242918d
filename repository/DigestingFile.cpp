#include "repository/DigestingFile.h"

#include "platform/Beneath.h"

#include <QFileInfo>

bool DigestingFile::openRegular(const QString &path, const QString &within)
{
    setFileName(path);
    restart();
    constexpr auto mode = QIODevice::ReadOnly | QIODevice::Unbuffered;
    if (within.isEmpty()) {
        return QFileInfo(path).isFile() && open(mode);
    }
    if (!path.startsWith(within + "/")) {
        return false;
    }
    Descriptor file = Beneath(within).openRegular(encodeName(path.mid(within.size() + 1))).descriptor;
    return file.isOpen() && open(file.release(), mode, QFileDevice::AutoCloseHandle);
}

void DigestingFile::restart()
{
    stream.reset(isOpen() ? size() : 0);
    hashed = 0;
    inOrder = true;
}

QString DigestingFile::digest()
{
    return inOrder ? stream.result() : QString();
}

qint64 DigestingFile::readData(char *data, qint64 size)
{
    const qint64 position = pos();
    const qint64 count = QFile::readData(data, size);
    if (count <= 0) {
        return count;
    }
    if (position == 0) {
        restart();
    }
    inOrder = inOrder && position == hashed;
    stream.add(QByteArrayView(data, static_cast<qsizetype>(count)));
    hashed += count;
    return count;
}
