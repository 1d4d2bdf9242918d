#pragma once

class QByteArray;
class QString;

/// Replace one of the service's working files by one of this content, which a process that is killed leaves
/// whole or not at all; a power cut need not. False when that is not possible; the file is then as it was.
bool writeWholeFile(const QString &path, const QByteArray &content);
