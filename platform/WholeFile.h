#pragma once

class QByteArray;
class QString;

/// Whether a file outlasts a loss of power, too, which takes its time.
enum class WholeFile { Passing, Lasting };

/// Replace one of the service's files by one of this content, which a process that is killed leaves whole or
/// not at all. False when that is not possible; the file is then as it was.
bool writeWholeFile(const QString &path, const QByteArray &content, WholeFile lasting = WholeFile::Passing);
