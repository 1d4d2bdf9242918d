#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <QTemporaryFile>

#include <memory>

/// Receives the content of a fetched entry in a temporary file beside its target, which is replaced when the
/// content is complete. Until then, and whenever that fails, the target is as it was.
///
/// Nothing is forced to the disk, which takes long for a large file: whoever needs the content to outlast a
/// loss of power syncs the target, beside the events.
class DownloadFile
{
public:
    /// Begin anew, for that many bytes at the most, and for no more than nine tenths of what is free; 0 for
    /// no other bound than that. False when the file cannot be made, or is to replace a directory.
    bool open(const QString &target, qint64 largest = 0);

    /// Drop what was received, and receive it again.
    void restart();

    /// Take these bytes. False when they, or some before them, were too many or could not be written.
    bool append(QByteArrayView bytes);

    qint64 size() const { return received; }
    /// So many bytes are said to come.
    void expect(qint64 size) { expected = size; }
    /// How many bytes may come, and whether more have come or are said to.
    qint64 limit() const { return most; }
    bool isTooLarge() const { return received > most || expected > most; }

    /// Replace the target; false when not everything could be written.
    bool finish();

    /// Replace the target by a file of these permissions.
    bool finish(QFileDevice::Permissions permissions);

    /// Drop what was received.
    void drop() { file.reset(); }

private:
    bool writeGathered();

    QString target;
    std::unique_ptr<QTemporaryFile> file;
    QByteArray gathered; ///< of a large entry, to be written at once
    qint64 received = 0;
    qint64 expected = 0;
    qint64 most = 0;
    bool failed = false;
};
