#pragma once

#include "staging/ContentState.h"
#include "staging/DigestFile.h"

#include <QMutex>
#include <QString>

#include <chrono>
#include <functional>

class Descriptor;
class Waiter;

/// When time stamps are believed.
struct StampRules
{
    /// How long before the begin of an operation the last change must lie, whatever the resolution of the
    /// stamps.
    std::chrono::nanoseconds settled = std::chrono::seconds(3);
    qint64 builtAt;              ///< a change before that, in ns since the epoch, happened without a clock
    std::function<qint64()> now; ///< in ns since the epoch

    StampRules();
};

/// The digests that the modules' data had, kept from one operation to the next: what has not changed need not
/// be read again.
///
/// A digest is believed when everything that the file system tells of a file is as it was, its last change
/// lies some time back, and it has been brought to the disk: while a page of a file waits for the disk,
/// stores through a mapping change no time stamp. Every tenth save of an item reads it all the same. The
/// file of digests can be deleted at any time; one that is not in order, or of another device, counts for
/// nothing. May be asked in any thread between `begin` and `store`.
class RememberedDigests
{
public:
    explicit RememberedDigests(StampRules rules = {}) : rules(std::move(rules)) {}

    enum class Purpose { Save, Restore };

    /// Bring the modules' data to the disk and read what is remembered; without this call, or on a file
    /// system whose stamps do not tell of stores through a mapping, nothing is. `repository` is its URL.
    void begin(Waiter &waiter, const QString &repository, Purpose purpose);

    /// The digest with which an item of that state is saved, empty when it has to be read.
    QString find(const QString &key, const ContentState &state);

    /// Remember the digest of content that was read after the state was taken; an empty one forgets. Returns
    /// the digest with which that content is saved. `again` takes the state once more.
    QString enter(const QString &key, const ContentState &state, const QString &digest,
                  const std::function<ContentState()> &again);

    /// Remember with which digest the content of a database is saved that was just put back. Its users must
    /// be stopped still, and go on only when this says true: before, a change could leave the same time
    /// stamp.
    bool enterRestored(const QString &key, const Descriptor &database, const QString &saved);

    /// Write what is remembered. Nothing of it is needed.
    void store();

private:
    bool isBelieved(const ContentState &state) const;

    StampRules rules;
    QMutex mutex;
    DigestFile file;
    dev_t device = 0; ///< of the modules' data; 0 when nothing is remembered
    qint64 began = 0; ///< before the data were brought to the disk, in ns since the epoch
    bool saves = false;
};
