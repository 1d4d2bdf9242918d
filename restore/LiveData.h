#pragma once

#include <QString>
#include <QStringList>

#include <sys/types.h>

class Waiter;

/// Replaces live data without ever risking them.
///
/// What is there is set aside in a hidden directory beside it; then the new data are put into place. `commit`
/// drops what was set aside; without it the destructor brings it back. When the process dies in between,
/// `recoverAll` brings it back at the next start. A symbolic link at the live path is treated as the link
/// that it is.
class LiveData
{
public:
    enum class Kind {
        File,
        Database, ///< with the files that SQLite keeps beside it
    };

    LiveData(QString path, Kind kind);
    ~LiveData();

    LiveData(const LiveData &) = delete;
    LiveData &operator=(const LiveData &) = delete;

    bool exists() const;

    /// Move the live data away; the live path is then free. Missing parent directories are made. False, with
    /// everything as before, when that is not possible.
    bool moveAside();

    /// Keep a copy of the live data, which stay in place.
    bool copyAside(Waiter &waiter);

    /// The new data are good: give them the owner, group and mode of the old one (or of its directory) and
    /// drop what was set aside.
    void commit(Waiter &waiter);

    /// Bring back whatever a process that died had set aside below a directory.
    static void recoverAll(const QString &root);

    /// True when the path, with the links in its directories followed, lies below the data directory of the
    /// module.
    static bool belongsToModule(const QString &path, const QString &module);

private:
    struct Ownership
    {
        uid_t user = 0;
        gid_t group = 0;
        mode_t mode = 0;
    };

    bool makeParents();
    bool prepare(const QString &directory) const;
    void rememberOwnership();
    void applyOwnership() const;

    QString path;
    Kind kind;
    Ownership ownership;
    QStringList madeParents;
    bool aside = false;
};
