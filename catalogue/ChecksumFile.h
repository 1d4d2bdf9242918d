#pragma once

#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

/// The most bytes and lines that all checksum files of a repository have together, the most bytes of one line
/// and of its key, and fields of a line.
constexpr qint64 largestChecksumFile = qint64{16} * 1024 * 1024;
constexpr qsizetype mostChecksumLines = 200000;
constexpr qint64 longestChecksumLine = 8192;
constexpr qint64 longestChecksumKey = 4096;
constexpr qsizetype mostChecksumFields = 6;

/// One line of a checksum file: fields separated by a TAB.
///
/// Field 1 is the key of the item, field 2 its MD5 digest (empty when it could not be taken), field 3 its
/// kind ("file", "directory" or "database"); the last field is the priority name. Lines of one file share
/// what they have in common behind the digest.
class ChecksumLine
{
public:
    explicit ChecksumLine(const QStringList &fields)
        : ChecksumLine(fields.value(0), fields.value(1), fields.mid(2))
    {
    }
    ChecksumLine(QString key, QString digest, QStringList others)
        : itemKey(std::move(key)), md5(std::move(digest)), others(std::move(others))
    {
    }

    static ChecksumLine file(const QString &key, const QString &digest, bool zip, const QString &priority);
    static ChecksumLine directory(const QString &key, const QString &digest, const QString &priority);
    static ChecksumLine database(const QString &key, const QString &digest);

    QString key() const { return itemKey; }
    /// Tells the line's item from all others of its module: a file can have the key of a database.
    QString identity() const;
    QString digest() const { return md5; }
    QString kind() const { return others.value(0); }
    QString priority() const { return others.isEmpty() ? md5 : others.last(); }
    bool isPlainFile() const { return kind() == "file"; }
    void setDigest(const QString &digest) { md5 = digest; }
    QByteArray text() const { return (QStringList{itemKey, md5} + others).join('\t').toUtf8() + "\n"; }

    friend bool operator==(const ChecksumLine &left, const ChecksumLine &right) = default;

private:
    QString itemKey;
    QString md5;
    QStringList others;
};

using ChecksumLines = QList<ChecksumLine>;

/// How large checksum files are.
struct ChecksumSize
{
    qint64 bytes = 0;
    qint64 lines = 0;

    static ChecksumSize of(const ChecksumLines &lines);

    bool isAllowed() const { return bytes <= largestChecksumFile && lines <= mostChecksumLines; }
    ChecksumSize operator+(const ChecksumSize &more) const
    {
        return {bytes + more.bytes, lines + more.lines};
    }
    ChecksumSize operator-(const ChecksumSize &less) const
    {
        return {bytes - less.bytes, lines - less.lines};
    }
};

/// The lines up to the first that has fewer than two fields; they end with a line feed, or with CR LF.
/// Nothing when the file cannot be opened, or goes beyond one of the bounds above: the log says which. The
/// size is that of the files which count besides this one, and then includes it.
std::optional<ChecksumLines> readChecksumFile(const QString &path, ChecksumSize &size);

/// The lines that a text holds, by the same rule; none when it goes beyond a bound.
ChecksumLines parseChecksumLines(const QByteArray &text);

/// The content of the checksum file with these lines.
QByteArray checksumText(const ChecksumLines &lines);

/// Replace the file's content. False when it could not be written whole, or could not be read again for its
/// bounds; the file is then as before.
bool writeChecksumFile(const QString &path, const ChecksumLines &lines);
