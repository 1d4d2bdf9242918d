#pragma once

#include "platform/Descriptor.h"
#include "restore/ArchiveFault.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <ctime>
#include <sys/types.h>

class Waiter;

/// Who may do what with a file, and when it was changed.
struct FileMetadata
{
    uid_t user = 0;
    gid_t group = 0;
    mode_t mode = 0; ///< permissions, set-id and sticky bits
    timespec modified = {};
};

/// A directory that is made beside everybody's reach: until `finish` nobody else may enter it.
///
/// Everything in it is named by a path relative to it, without "." and "..", and is reached component by
/// component from its open descriptor, so that no link is followed, whoever made it. What has a name that is
/// to be made is removed before. A directory's time and mode do not change by what is made in it. May be used
/// beside the main thread. Every call throws an ArchiveFault: System, Ended when the waiter has to end,
/// LeadsOut when a link stands where a directory above the name should be, TooMany when more directories are
/// made than the limit allows.
class FreshTree
{
public:
    /// Make the directory; the one above has to exist. Directories that nothing else is said of take the
    /// given owner and mode. The waiter must outlive the object.
    FreshTree(const QString &path, const FileMetadata &usual, quint64 limit, const Waiter &waiter);

    /// Fill it with a copy of a directory: files, directories and links, with owner, mode and time. What has
    /// a name of the service's own is left out; so is, and is told by `notKept`, what is nothing of these.
    void copy(const QString &directory);

    /// Make a directory, or change the one that is there. An empty path names the tree itself.
    void makeDirectory(const QByteArray &path, const FileMetadata &metadata);

    /// An empty regular file, open to be written, which `finishFile` gives its length and metadata.
    Descriptor makeFile(const QByteArray &path);
    static void write(int file, const char *bytes, quint64 size, quint64 offset);
    void finishFile(int file, quint64 length, const FileMetadata &metadata);

    void makeLink(const QByteArray &path, const QByteArray &target, const FileMetadata &metadata);

    /// A second name for a regular file of the tree; false when there is none with the first name.
    bool makeHardLink(const QByteArray &path, const QByteArray &target);

    /// Give the tree itself its metadata: others may enter it then.
    void finish();

    /// The paths of what the copied directory has and the copy has not, the first few.
    const QStringList &notKept() const { return leftOut; }

    /// False when something could not be given the owner or mode that it should have.
    bool metadataKept() const { return kept; }

private:
    void copyDirectory(int live, const QByteArray &path, QList<QByteArray> &pending);
    bool copyEntry(int source, int target, const QByteArray &name);
    void copyFile(int source, int target, const QByteArray &name);
    void copyContent(int from, int to, off_t length);
    Descriptor openParent(const QByteArray &path);
    void makeDirectoryIn(int parent, const QByteArray &name, const FileMetadata &metadata);
    void removeIn(int parent, const QByteArray &name);
    void apply(int file, const FileMetadata &metadata);
    void applyToLink(int parent, const QByteArray &name, const FileMetadata &metadata);
    void look() const;

    const Waiter &waiter;
    const FileMetadata usual;
    const quint64 limit;
    const QByteArray ownPrefix;
    Descriptor root;
    FileMetadata ofRoot;
    quint64 made = 0;
    QStringList leftOut;
    bool kept = true;
};
