#pragma once

#include "restore/ArchiveFault.h"
#include "restore/ArchivePaths.h"
#include "restore/ArchiveReader.h"
#include "restore/FreshTree.h"

#include <QPair>
#include <QString>

#include <functional>

class Replacement;
class Waiter;

/// Puts a zipped directory back: its archive is unpacked over a copy of the live directory, which then
/// changes places with the live one in one step. At every moment the live path holds the old directory or the
/// whole new one.
///
/// An archive is read twice: before anything is written all of its members are looked at, and its digest. One
/// that is not what was promised, leads out of the directory or does not fit is refused as a whole. Links
/// that lead out of the directory, devices, FIFOs and sockets are left out with a warning; no file becomes
/// set-id. What is unpacked gets the owner and group of the live directory, or of the nearest above it.
class ArchiveRestore
{
public:
    static constexpr quint64 usualLimit = 1'000'000;

    /// The archive's file, and the directory's absolute path. An archive may have as many members as the
    /// limit allows. The waiter must outlive the object.
    ArchiveRestore(QString archive, QString directory, Waiter &waiter, quint64 limit = usualLimit);

    /// True when the directory was put back; the digest is the promised one of the uncompressed archive.
    bool restore(const QString &digest);

    /// Why it was not; empty when the operation has to end, or there is no more to say.
    const QString &errorText() const { return error; }

private:
    enum class LeftOut { LinkOut, LinkToNoFile, NoFile, NotKept };
    using Visit = std::function<void(ArchiveReader &, const ArchiveMember &)>;

    void build(const QString &path, const QString &above, const FileMetadata &usual);
    void read(const Visit &visit);
    ArchiveMember checked(ArchiveMember member) const;
    void unpack(FreshTree &tree, ArchiveReader &reader, const ArchiveMember &member);
    void unpackFile(FreshTree &tree, ArchiveReader &reader, const ArchiveMember &member);
    void leaveOut(LeftOut reason, const QString &path);
    void warn() const;
    QString textOf(const ArchiveFault &fault) const;

    const QString archive;
    const QString directory;
    const ArchivePaths paths;
    Waiter &waiter;
    const quint64 limit;
    Descriptor file;
    QString promised;
    QString found;             ///< digest of the archive that was read last
    qsizetype longestPath = 0; ///< bytes of a member's path in the directory that fit a path of the system
    quint64 room = 0;          ///< bytes that may be written
    FileMetadata owner;
    QList<QPair<LeftOut, QString>> leftOut;
    quint64 leftOutMore = 0;
    bool metadataKept = true;
    QString error;
};
