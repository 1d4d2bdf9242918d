#pragma once

#include "catalogue/ChecksumFile.h"

#include <QByteArray>
#include <QMap>
#include <QSet>
#include <QString>

#include <optional>

/// The most bytes of an attributes file, and of a name in it.
constexpr qint64 largestAttributesFile = largestChecksumFile;
constexpr qsizetype longestOwnerName = 255;

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

/// The attributes that a text holds of these keys; lines that are none are passed over. For a key that occurs
/// again only the permissions count that each of its lines gives.
AttributesByKey parseAttributes(const QByteArray &text, const QSet<QString> &keys);

/// Those of a file for the items of these lines. Nothing when it cannot be read or goes beyond the bound.
std::optional<AttributesByKey> readAttributesFile(const QString &path, const ChecksumLines &lines);
