#pragma once

#include <QByteArray>
#include <QHash>
#include <QString>

#include <optional>

/// What is remembered of one file, database or directory.
struct RememberedDigest
{
    QByteArray state;   ///< as ContentState tells it
    QByteArray content; ///< MD5 of the content, 16 bytes; empty when it has not been read
    QByteArray saved;   ///< with which that content is saved; another one for a database that was put back
    quint8 spared = 0;  ///< how many saves in a row have not read it
    quint8 idle = 0;    ///< how many saves in a row have not asked for it

    bool isOwn() const { return content == saved; }
};

/// By module and path.
using RememberedDigestsByKey = QHash<QString, RememberedDigest>;

struct DigestFile
{
    QByteArray origin;     ///< tells the device and its file system from others
    QByteArray repository; ///< tells the repository from others
    RememberedDigestsByKey digests;
};

/// Read a file of the service's own user. Nothing when it is anybody else's, larger than 64 MiB, or not
/// exactly as `writeDigestFile` has made it.
std::optional<DigestFile> readDigestFile(const QString &path);

/// Write it for the service's user alone, in a directory of its own which is made when it is missing. It does
/// not wait for the disk: what a power cut leaves of it is not believed.
bool writeDigestFile(const QString &path, const DigestFile &file);
