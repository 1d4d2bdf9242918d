#include "repository/DownloadFile.h"

#include <QFileInfo>

#include <cstdio>

bool DownloadFile::open(const QString &path)
{
    target = path;
    received = 0;
    failed = false;
    file = std::make_unique<QTemporaryFile>(path + ".XXXXXX");
    return !QFileInfo(path).isDir() && file->open();
}

bool DownloadFile::append(const QByteArray &bytes)
{
    received += bytes.size();
    failed = failed || !file || file->write(bytes) != bytes.size();
    return !failed;
}

void DownloadFile::take(QIODevice &source)
{
    constexpr qint64 portion = qint64{256} * 1024;
    while (file && source.bytesAvailable() > 0) {
        const QByteArray bytes = source.read(portion);
        if (bytes.isEmpty()) {
            return;
        }
        append(bytes);
    }
}

bool DownloadFile::finish()
{
    bool complete = file && !failed && file->flush();
    if (complete) {
        complete = std::rename(QFile::encodeName(file->fileName()).constData(),
                               QFile::encodeName(target).constData()) == 0;
        file->setAutoRemove(!complete);
    }
    file.reset();
    return complete;
}

bool DownloadFile::finish(QFileDevice::Permissions permissions)
{
    if (file) {
        file->setPermissions(permissions);
    }
    return finish();
}
