#pragma once

#include <QString>
#include <QTemporaryFile>

#include <memory>

class QIODevice;

/// Receives the content of a fetched entry in a temporary file beside its target, which is replaced when the
/// content is complete. Until then, and whenever that fails, the target is as it was.
///
/// Nothing is forced to the disk, which takes long for a large file: whoever needs the content to outlast a
/// loss of power syncs the target, beside the events.
class DownloadFile
{
public:
    /// Begin anew. False when the file cannot be made, or is to replace a directory.
    bool open(const QString &target);

    /// Take these bytes. False when they, or some before them, could not be written.
    bool append(const QByteArray &bytes);

    /// Take all that the source has to give so far. A write that fails shows in `finish`.
    void take(QIODevice &source);

    qint64 size() const { return received; }

    /// Replace the target; false when not everything could be written.
    bool finish();

    /// Replace the target by a file of these permissions.
    bool finish(QFileDevice::Permissions permissions);

    /// Drop what was received.
    void drop() { file.reset(); }

private:
    QString target;
    std::unique_ptr<QTemporaryFile> file;
    qint64 received = 0;
    bool failed = false;
};
