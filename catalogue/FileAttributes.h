#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>

#include <optional>

/// Who may do what with a saved file, and when it was changed last. A plain value.
struct FileAttributes
{
    quint32 mode = 0;    ///< permission bits, 0 to 0777
    QString owner;       ///< name; a number where the device has no name for it
    QString group;       ///< the same
    qint64 modified = 0; ///< nanoseconds since the beginning of 1970, UTC

    friend bool operator==(const FileAttributes &left, const FileAttributes &right) = default;
};

/// By the key of the item in the checksum file.
using AttributesByKey = QMap<QString, FileAttributes>;

/// A module's attributes file: lines of five fields separated by a TAB, in the order of the keys: key, mode
/// in octal, owner, group, time.
QByteArray attributesText(const AttributesByKey &attributes);

/// The attributes that a text holds; lines that are none are passed over. For a key that occurs again only
/// the permissions count that each of its lines gives.
AttributesByKey parseAttributes(const QByteArray &text);

/// Those of a file. Nothing when it cannot be read or has more than 64 MiB.
std::optional<AttributesByKey> readAttributesFile(const QString &path);
