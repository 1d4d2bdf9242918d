#include "catalogue/ChecksumFile.h"

#include "platform/logger/VYXLogger.h"
#include "platform/WholeFile.h"

#include <QBuffer>
#include <QFile>
#include <QHash>

#include <algorithm>

namespace {

QString beyond(const char *what, qint64 bound)
{
    return QString("%1 %2").arg(what, QString::number(bound));
}

/// Collects lines as far as they keep the bounds.
class BoundedLines
{
public:
    explicit BoundedLines(const ChecksumSize &before = {}) : counted(before) {}

    /// The next line, without its end. False when it is the end of the lines, or goes beyond a bound.
    bool take(QByteArrayView line)
    {
        const qsizetype keyEnd = line.indexOf('\t');
        if (!keepsBounds(line, keyEnd) || keyEnd < 0) {
            return false;
        }
        const qsizetype digestEnd = line.indexOf('\t', keyEnd + 1);
        const QByteArrayView digest =
            line.sliced(keyEnd + 1, (digestEnd < 0 ? line.size() : digestEnd) - keyEnd - 1);
        const QByteArrayView others = digestEnd < 0 ? QByteArrayView() : line.sliced(digestEnd);
        found << ChecksumLine(QString::fromUtf8(line.first(keyEnd)), QString::fromUtf8(digest),
                              fields(others));
        return true;
    }

    ChecksumSize size() const { return counted; }
    ChecksumLines lines() const { return fault.isEmpty() ? found : ChecksumLines(); }
    /// Which bound is broken; empty when none is.
    QString faultText() const { return fault; }

private:
    bool keepsBounds(QByteArrayView line, qsizetype keyLength)
    {
        counted = counted + ChecksumSize{line.size() + 1, keyLength < 0 ? 0 : 1};
        if (counted.bytes > largestChecksumFile) {
            fault = beyond("with those before it, it has more bytes than", largestChecksumFile);
        } else if (line.size() > longestChecksumLine) {
            fault = beyond("it has a line of more bytes than", longestChecksumLine);
        } else if (counted.lines > mostChecksumLines) {
            fault = beyond("with those before it, it has more lines than", mostChecksumLines);
        } else if (keyLength > longestChecksumKey) {
            fault = beyond("it has a key of more bytes than", longestChecksumKey);
        } else if (std::count(line.begin(), line.end(), '\t') >= mostChecksumFields) {
            fault = beyond("it has a line of more fields than", mostChecksumFields);
        }
        return fault.isEmpty();
    }

    /// The fields, each behind its TAB, shared among lines that have the same: there are few of them.
    QStringList fields(QByteArrayView tabbed)
    {
        if (tabbed.isEmpty()) {
            return {};
        }
        constexpr qsizetype few = 100;
        const QByteArray text = tabbed.toByteArray();
        const auto same = known.constFind(text);
        if (same != known.constEnd()) {
            return *same;
        }
        QStringList fields = QString::fromUtf8(text).sliced(1).split('\t');
        if (known.size() < few) {
            known.insert(text, fields);
        }
        return fields;
    }

    ChecksumLines found;
    ChecksumSize counted;
    QHash<QByteArray, QStringList> known;
    QString fault;
};

BoundedLines linesOf(QIODevice &text, const ChecksumSize &before = {})
{
    BoundedLines lines(before);
    QByteArray buffer(longestChecksumLine + 3, Qt::Uninitialized); // a line, its end, and a byte too many
    bool goesOn = true;
    while (goesOn) {
        const qint64 size = text.readLine(buffer.data(), buffer.size());
        QByteArrayView line(buffer.constData(), static_cast<qsizetype>(std::max(size, qint64{0})));
        for (const char end : {'\n', '\r'}) {
            line = line.endsWith(end) ? line.chopped(1) : line;
        }
        goesOn = size > 0 && lines.take(line);
    }
    return lines;
}

} // namespace

QString ChecksumLine::identity() const
{
    const QString kindOfItem = kind();
    const bool made = kindOfItem == "directory" || kindOfItem == "database";
    return made ? kindOfItem + "\t" + itemKey : itemKey;
}

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

ChecksumSize ChecksumSize::of(const ChecksumLines &lines)
{
    ChecksumSize size = {0, lines.size()};
    for (const ChecksumLine &line : lines) {
        size.bytes += line.text().size();
    }
    return size;
}

ChecksumLines parseChecksumLines(const QByteArray &text)
{
    QBuffer buffer;
    buffer.setData(text);
    buffer.open(QIODevice::ReadOnly);
    return linesOf(buffer).lines();
}

std::optional<ChecksumLines> readChecksumFile(const QString &path, ChecksumSize &size)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return std::nullopt;
    }
    const BoundedLines lines = linesOf(file, size);
    if (file.error() != QFile::NoError) {
        logError("Checksum file (%1) is refused: %2", path, file.errorString());
        return std::nullopt;
    }
    if (!lines.faultText().isEmpty()) {
        logError("Checksum file (%1) is refused: %2", path, lines.faultText());
        return std::nullopt;
    }
    size = lines.size();
    return lines.lines();
}

QByteArray checksumText(const ChecksumLines &lines)
{
    QByteArray text;
    for (const ChecksumLine &line : lines) {
        text += line.text();
    }
    return text;
}

bool writeChecksumFile(const QString &path, const ChecksumLines &lines)
{
    BoundedLines readable;
    for (const ChecksumLine &line : lines) {
        const QByteArray one = line.text();
        if (!readable.take(QByteArrayView(one).chopped(1))) {
            logError("Checksum file (%1) is not written: %2", path, readable.faultText());
            return false;
        }
    }
    return writeWholeFile(path, checksumText(lines));
}
