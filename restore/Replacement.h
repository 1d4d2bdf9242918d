#pragma once

#include "catalogue/FileAttributes.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <array>
#include <optional>
#include <sys/types.h>

class Waiter;

/// New content for live data, made beside it and put in its place in one step: at every moment the live path
/// holds the old content or the whole new one.
///
/// The new content is a file or a directory at `path()`. What is not put in place is removed with the object;
/// what a process that died has left is removed by `LiveData::recoverAll`.
class Replacement
{
public:
    struct Ownership
    {
        uid_t user = 0;
        gid_t group = 0;
        mode_t mode = 0;
    };

    /// What follows a SQLite database's name in the names of the files that SQLite keeps beside it.
    static constexpr std::array sideSuffixes = {"-wal", "-shm", "-journal"};

    explicit Replacement(QString livePath);
    ~Replacement();

    Replacement(const Replacement &) = delete;
    Replacement &operator=(const Replacement &) = delete;

    /// Make the directories above the live path that are missing, with the owner, group and mode of the
    /// nearest that exists, and free `path()`. False when that is not possible.
    bool prepare();

    /// Where the new content is to be made: in the directory of the live data, under a name of the service's.
    QString path() const;

    /// What new content of a kind, S_IFREG or S_IFDIR, takes: owner, group and mode of live content of that
    /// kind, or else of the directory around it, for a file without the right to execute. Nothing when there
    /// is no such directory; `prepare` makes it.
    std::optional<Ownership> ownership(mode_t kind) const;

    /// What was saved of a file. Its permissions and time count, and its owner and group where this device
    /// knows their names; root's only in a directory of root's.
    void setAttributes(const std::optional<FileAttributes> &saved) { attributes = saved; }

    /// Put the new content in place, on the disk before the old one goes. A file takes the saved attributes
    /// or its `ownership`; a directory comes with its own. False, with the old content still there, when it
    /// could not be done.
    bool replace(Waiter &waiter);

    /// The same for several, which are brought to the disk together. What became of each.
    static QList<bool> replaceAll(Waiter &waiter, const QList<Replacement *> &all);

    /// Remove the new content with events served, as the destructor does without: a large one takes its time.
    void discard(Waiter &waiter);

    /// The same for a SQLite database, whose side files go with it. A directory is not replaced.
    ///
    /// No content ever meets the side files of the other one and is used with them: the new content, which is
    /// on the disk, takes the name `readyPrefix()` + <name> first, then the side files are removed, then it
    /// takes its place. From the first step on the new content counts: whatever cuts the steps off,
    /// `complete` does the rest at the next start.
    bool replaceDatabase(Waiter &waiter);

    static QString readyPrefix();
    /// Put a database that is ready in its place.
    static bool complete(const QString &livePath);

private:
    void takeOwnership() const;
    bool makeParents();
    bool exchange() const;
    static bool syncAll(const QStringList &paths);

    Ownership withAttributes(Ownership taken) const;

    QString livePath;
    std::optional<FileAttributes> attributes;
    int number; ///< tells those apart that are made in one directory
    QStringList madeParents;
};
