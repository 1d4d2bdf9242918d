#pragma once

#include "platform/Descriptor.h"

#include <QByteArrayView>
#include <QString>

#include <memory>

/// The comment of a gzip file's first member (RFC 1952), when it has that alone and no more than 64 bytes;
/// else empty.
QByteArray gzipLabel(const QString &path);

/// Compresses a stream into a file, as gzip members of at most 1 MiB before compression, one after the other.
///
/// The same stream makes the same bytes. Every write is checked: after one that failed all others fail, too.
class GzipWriter
{
public:
    /// Opens the file, which is emptied when it exists; its mode is left to the umask.
    explicit GzipWriter(const QString &path);
    ~GzipWriter();
    GzipWriter(const GzipWriter &) = delete;
    GzipWriter &operator=(const GzipWriter &) = delete;

    /// False when the file is not as it should be, here and below.
    bool write(QByteArrayView bytes);

    /// Begin another member with what is written next.
    bool endMember();

    /// Write a member without content whose comment is the text: it stands in the file and not in the stream.
    /// At most 64 bytes, none of them 0.
    bool label(const QByteArray &text);

    /// Nothing may be written afterwards.
    bool finish();

private:
    /// What compressing needs; a thread keeps it for its next writer.
    struct Workspace;
    struct Free
    {
        void operator()(Workspace *workspace) const;
    };
    using WorkspacePointer = std::unique_ptr<Workspace, Free>;

    static WorkspacePointer &spare();

    Descriptor file;
    WorkspacePointer workspace;
    bool whole = false;
};
