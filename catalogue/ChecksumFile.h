#pragma once

#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

/// One line of a checksum file: fields separated by a TAB.
///
/// Field 1 is the key of the item, field 2 its MD5 digest (empty when it could not be taken), field 3 its
/// kind
/// ("file", "directory" or "database"); the last field is the priority name.
class ChecksumLine
{
public:
    explicit ChecksumLine(QStringList fields) : fields(std::move(fields)) {}

    static ChecksumLine file(const QString &key, const QString &digest, bool zip, const QString &priority);
    static ChecksumLine directory(const QString &key, const QString &digest, const QString &priority);
    static ChecksumLine database(const QString &key, const QString &digest);

    QString key() const { return fields.value(0); }
    QString digest() const { return fields.value(1); }
    QString kind() const { return fields.value(2); }
    QString priority() const { return fields.last(); }
    bool isPlainFile() const { return kind() == "file"; }
    void setDigest(const QString &digest) { fields[1] = digest; }
    QByteArray text() const { return fields.join('\t').toUtf8() + "\n"; }

    friend bool operator==(const ChecksumLine &left, const ChecksumLine &right) = default;

private:
    QStringList fields;
};

using ChecksumLines = QList<ChecksumLine>;

/// The lines up to the first that has fewer than two fields; they end with a line feed, or with CR LF.
/// Nothing when the file cannot be opened or has more than 64 MiB.
std::optional<ChecksumLines> readChecksumFile(const QString &path);

/// The lines that a text holds, by the same rule.
ChecksumLines parseChecksumLines(const QByteArray &text);

/// Replace the file's content. False when it could not be written whole; the file is then as before.
bool writeChecksumFile(const QString &path, const ChecksumLines &lines);
