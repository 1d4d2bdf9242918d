#include "catalogue/ChecksumFile.h"

#include "platform/logger/VYXLogger.h"

#include <QFile>
#include <QSaveFile>

namespace {

/// Some hundred thousand items; what is larger is no checksum file of ours and would only cost memory.
constexpr qint64 largestChecksumFile = qint64{64} * 1024 * 1024;

} // namespace

ChecksumLine ChecksumLine::file(const QString &key, const QString &digest, bool zip, const QString &priority)
{
    return ChecksumLine({key, digest, "file", zip ? "true" : "false", priority});
}

ChecksumLine ChecksumLine::directory(const QString &key, const QString &digest, const QString &priority)
{
    return ChecksumLine({key, digest, "directory", "1", priority});
}

ChecksumLine ChecksumLine::database(const QString &key, const QString &digest)
{
    return ChecksumLine({key, digest, "database", "high"});
}

ChecksumLines parseChecksumLines(const QByteArray &text)
{
    ChecksumLines lines;
    for (QByteArray line : text.split('\n')) {
        if (line.endsWith('\r')) {
            line.chop(1);
        }
        const QStringList fields = QString::fromUtf8(line).split('\t');
        if (fields.size() < 2) {
            break;
        }
        lines << ChecksumLine(fields);
    }
    return lines;
}

std::optional<ChecksumLines> readChecksumFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return std::nullopt;
    }
    if (file.size() > largestChecksumFile) {
        logError("Checksum file (%1) is refused: it is larger than %2 bytes", path, largestChecksumFile);
        return std::nullopt;
    }
    return parseChecksumLines(file.readAll());
}

bool writeChecksumFile(const QString &path, const ChecksumLines &lines)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        return false;
    }
    for (const ChecksumLine &line : lines) {
        file.write(line.text());
    }
    return file.commit();
}
