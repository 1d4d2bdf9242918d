#pragma once

#include <QMap>
#include <QString>

#include <optional>

/// The entries of a collection and their sizes in bytes (-1 when they are not told), from the answer to a
/// PROPFIND of depth 1 (RFC 4918). Collections are no entries. Nothing when the file is no such answer, or
/// has more than that many entries.
std::optional<QMap<QString, qint64>> readDavListing(const QString &path, qsizetype most);
