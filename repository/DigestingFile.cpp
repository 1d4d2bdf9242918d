#include "repository/DigestingFile.h"

#include <QFileInfo>

bool DigestingFile::openRegular(const QString &path)
{
    setFileName(path);
    hash.reset();
    hashed = 0;
    inOrder = true;
    return QFileInfo(path).isFile() && open(QIODevice::ReadOnly | QIODevice::Unbuffered);
}

QString DigestingFile::digest() const
{
    return inOrder ? QString::fromLatin1(hash.result().toHex()) : QString();
}

qint64 DigestingFile::readData(char *data, qint64 size)
{
    const qint64 position = pos();
    const qint64 count = QFile::readData(data, size);
    if (count <= 0) {
        return count;
    }
    if (position == 0) {
        hash.reset();
        hashed = 0;
        inOrder = true;
    }
    inOrder = inOrder && position == hashed;
    hash.addData(QByteArrayView(data, count));
    hashed += count;
    return count;
}
