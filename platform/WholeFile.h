#pragma once

class QByteArray;
class QString;

/// Replace a file by one of this content, which is on the disk before it takes the name. False when that is
/// not possible; the file is then as it was.
bool writeWholeFile(const QString &path, const QByteArray &content);
