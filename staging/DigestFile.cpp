#include "staging/DigestFile.h"

#include "platform/Descriptor.h"
#include "platform/WholeFile.h"

#include <QCryptographicHash>
#include <QDataStream>
#include <QFile>
#include <QFileInfo>
#include <QIODevice>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr qint64 largestFile = qint64{64} * 1024 * 1024;
constexpr qsizetype checkSize = 16;
const QByteArray head = "remembered digests 1\n";

QByteArray check(const QByteArray &content)
{
    return QCryptographicHash::hash(content, QCryptographicHash::Md5);
}

/// Whose names nobody else can change.
bool isOwn(const struct stat &status)
{
    return status.st_uid == geteuid() && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

/// The directory of the file, unless it is a link, or others can put something into it.
Descriptor ownDirectory(const QString &path)
{
    Descriptor directory(open(QFile::encodeName(QFileInfo(path).path()).constData(),
                              O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    return isOwn(directory.status()) ? std::move(directory) : Descriptor();
}

QByteArray contentOf(const QString &path)
{
    const Descriptor directory = ownDirectory(path);
    const QByteArray name = QFile::encodeName(QFileInfo(path).fileName());
    const Descriptor found(openat(directory.number(), name.constData(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    Descriptor opened = found.isOpen() ? openedForReading(found) : Descriptor();
    const struct stat status = opened.status();
    QFile file;
    const bool usable = opened.isOpen() && isOwn(status) && status.st_size <= largestFile &&
                        file.open(opened.release(), QIODevice::ReadOnly, QFileDevice::AutoCloseHandle);
    return usable ? file.read(largestFile) : QByteArray();
}

} // namespace

std::optional<DigestFile> readDigestFile(const QString &path)
{
    QByteArray content = contentOf(path);
    const QByteArray expected = content.right(checkSize);
    content.chop(checkSize);
    if (!content.startsWith(head) || check(content) != expected) {
        return std::nullopt;
    }
    QDataStream stream(content.mid(head.size()));
    stream.setVersion(QDataStream::Qt_6_0);
    DigestFile file;
    stream >> file.origin >> file.repository;
    while (!stream.atEnd() && stream.status() == QDataStream::Ok) {
        QByteArray key;
        RememberedDigest digest;
        stream >> key >> digest.state >> digest.content >> digest.saved >> digest.spared >> digest.idle;
        file.digests.insert(QString::fromUtf8(key), digest);
    }
    return stream.status() == QDataStream::Ok ? std::optional(file) : std::nullopt;
}

bool writeDigestFile(const QString &path, const DigestFile &file)
{
    QByteArray content;
    QDataStream stream(&content, QIODevice::WriteOnly);
    stream.setVersion(QDataStream::Qt_6_0);
    stream.writeRawData(head.constData(), static_cast<int>(head.size()));
    stream << file.origin << file.repository;
    for (auto digest = file.digests.cbegin(); digest != file.digests.cend(); ++digest) {
        stream << digest.key().toUtf8() << digest->state << digest->content << digest->saved << digest->spared
               << digest->idle;
    }
    mkdir(QFile::encodeName(QFileInfo(path).path()).constData(), S_IRWXU);
    return ownDirectory(path).isOpen() && content.size() + checkSize <= largestFile &&
           writeWholeFile(path, content + check(content));
}
