#include "verify/ControlFileFaults.h"

#include "catalogue/FileAttributes.h"
#include "catalogue/SavedVersion.h"

#include <QFile>

#include <algorithm>

namespace {

QByteArrayList linesOf(const QString &path)
{
    QFile file(path);
    QByteArrayList lines = file.open(QIODevice::ReadOnly) ? file.readAll().split('\n') : QByteArrayList();
    if (!lines.isEmpty() && lines.last().isEmpty()) {
        lines.removeLast();
    }
    return lines;
}

} // namespace

namespace ControlFileFaults {

QString ofVersionFile(const QString &path)
{
    const QString line = QString::fromUtf8(linesOf(path).value(0)).trimmed();
    const SavedVersion version = SavedVersion::parse(line);
    const bool sound = line.contains("::") && !version.release.isEmpty() && !version.version.isEmpty() &&
                       std::ranges::all_of(line, [](QChar one) { return one.isPrint(); });
    return sound ? QString() : "It does not tell a release and a version";
}

QString ofChecksumFile(const QString &path, qsizetype usableLines)
{
    const qsizetype lines = linesOf(path).size();
    return lines == usableLines ? QString()
                                : QString("Of its %1 lines %2 can be used").arg(lines).arg(usableLines);
}

QString ofAttributesFile(const QString &path)
{
    const QByteArrayList lines = linesOf(path);
    const bool sound = std::ranges::all_of(lines, [](const QByteArray &line) {
        return !parseAttributes(line, {QString::fromUtf8(line.split('\t').constFirst())}).isEmpty();
    });
    return sound ? QString() : "It has lines that tell no attributes";
}

} // namespace ControlFileFaults
