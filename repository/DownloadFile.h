#pragma once

#include <QSaveFile>
#include <QString>

#include <memory>

class QIODevice;

/// Receives a download in a temporary file beside its target, which is replaced when the download is
/// complete.
class DownloadFile
{
public:
    /// False when the file cannot be made; nothing has then happened to the target.
    bool open(const QString &target);

    /// Take what has arrived so far. A write that fails shows in `finish`.
    void take(QIODevice &source);

    qint64 size() const { return received; }

    /// Replace the target. False when not everything could be written; the target is then as before.
    bool finish();

    /// Drop what was received and, as nothing valid came for it, the target.
    void fail();

private:
    std::unique_ptr<QSaveFile> file;
    QString target;
    qint64 received = 0;
    bool failed = false;
};
