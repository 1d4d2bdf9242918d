#include "repository/DownloadFile.h"

#include <QFile>

bool DownloadFile::open(const QString &path)
{
    target = path;
    received = 0;
    failed = false;
    file = std::make_unique<QSaveFile>(path);
    return file->open(QIODevice::WriteOnly);
}

void DownloadFile::take(QIODevice &source)
{
    constexpr qint64 portion = qint64{256} * 1024;
    while (file && source.bytesAvailable() > 0) {
        const QByteArray bytes = source.read(portion);
        if (bytes.isEmpty()) {
            return;
        }
        received += bytes.size();
        failed = failed || file->write(bytes) != bytes.size();
    }
}

bool DownloadFile::finish()
{
    const bool complete = file && !failed && file->commit();
    file.reset();
    return complete;
}

void DownloadFile::fail()
{
    if (file) {
        file->cancelWriting();
        file.reset();
    }
    QFile::remove(target);
}
