#include "repository/DownloadFile.h"

#include "commands/LargeStream.h"
#include "platform/DiskSpace.h"

#include <QFileInfo>

#include <algorithm>
#include <cstdio>

namespace {

/// Nine tenths of what is free in the file system of a path's directory, in bytes.
qint64 roomAt(const QString &path)
{
    return DiskSpace::of(QFileInfo(path).path()).available / 10 * 9;
}

} // namespace

bool DownloadFile::open(const QString &path, qint64 largest)
{
    most = largest > 0 ? std::min(largest, roomAt(path)) : roomAt(path);
    target = path;
    received = 0;
    expected = 0;
    failed = false;
    gathered = {};
    file = std::make_unique<QTemporaryFile>(path + ".XXXXXX");
    return !QFileInfo(path).isDir() && file->open();
}

bool DownloadFile::append(QByteArrayView bytes)
{
    received += bytes.size();
    failed = failed || isTooLarge() || !file;
    if (!failed && expected >= largeStream) {
        gathered.append(bytes);
        failed = gathered.size() >= largePortion && !writeGathered();
    } else if (!failed) {
        failed = file->write(bytes.data(), bytes.size()) != bytes.size();
    }
    return !failed;
}

bool DownloadFile::writeGathered()
{
    const bool written = file->write(gathered) == gathered.size();
    gathered.resize(0);
    return written;
}

void DownloadFile::restart()
{
    received = 0;
    expected = 0;
    gathered.resize(0);
    failed = !file || !file->seek(0) || !file->resize(0);
}

bool DownloadFile::finish()
{
    bool complete = file && !failed && writeGathered() && file->flush();
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
