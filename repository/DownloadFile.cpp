#include "repository/DownloadFile.h"

bool DownloadFile::open(const QString &path)
{
    received = 0;
    failed = false;
    file = std::make_unique<QSaveFile>(path);
    return file->open(QIODevice::WriteOnly | QIODevice::Unbuffered);
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
    const bool complete = file && !failed && file->commit();
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
