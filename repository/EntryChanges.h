#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <functional>
#include <memory>

class QObject;

/// One change of a directory's entries.
struct EntryChange
{
    QByteArray written; ///< name of the file that is to become the entry; empty when the entry goes
    QByteArray entry;
};

/// Carries out changes of a directory's entries beside the main thread: what was written is brought to the
/// disk as a whole, by one call, then the files take the names of their entries one after the other, and then
/// these names are brought to the disk. So no entry ever has less than its whole content, wherever the power
/// is lost.
class EntryChanges
{
public:
    enum class Result {
        Done,
        Untouched, ///< the entry is as it was, and what was written for it is gone
        Unknown,   ///< done, but not known to be on the disk
    };
    /// The results in the order of the changes; called from the receiver's event loop.
    using Done = std::function<void(const QList<Result> &)>;

    /// Begin. `done` is not called any more when this object is gone.
    EntryChanges(QString directory, QList<EntryChange> changes, QObject *receiver, Done done);
    /// As `giveUp`.
    ~EntryChanges();

    EntryChanges(const EntryChanges &) = delete;
    EntryChanges &operator=(const EntryChanges &) = delete;

    /// Changes that have not begun are given up; those that have are waited for. What has become of them;
    /// `done` is not called any more.
    QList<Result> giveUp();

private:
    struct Shared;

    std::shared_ptr<Shared> shared;
};
