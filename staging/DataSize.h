#pragma once

#include <QString>

/// Bytes of a file, or of all files below a directory; links are not followed, and after 1,000,000 entries no
/// more are counted. An estimate: what cannot be read counts nothing. For a thread beside.
quint64 dataSize(const QString &path);
