#pragma once

#include <QList>
#include <QMap>
#include <QObject>
#include <QString>

#include <functional>
#include <map>

class Waiter;

enum RepositoryType { LocalRepositoryType = 0, DistantRepositoryType = 1 };

/// What became of a request.
struct RequestOutcome
{
    enum Kind {
        Stored, ///< carried out: the entry, or of a fetch the local file, holds the content; or the entry is
                ///< gone
        Absent, ///< a fetch of what the repository does not hold; nothing else has failed
        Failed,
    };

    enum Cause {
        Other,
        NoRoom,       ///< the repository has none for the entry
        NoAnswer,     ///< the repository is not reached, or not any more
        NotSupported, ///< this kind of repository cannot do that
    };

    Kind kind = Stored;
    QString text = {};           ///< why it failed
    bool entryUntouched = false; ///< it failed before the repository changed anything: the entry is as it was
    QString digest = {};         ///< of a Put: MD5 of the very bytes that were stored, when it is known
    Cause cause = Other;         ///< of the failure
    qint64 size = -1;            ///< of a Look: bytes of the entry; -1 when they are not known
    QMap<QString, qint64> entries = {}; ///< of a List: the bytes of each entry, -1 when they are not known

    bool stored() const { return kind == Stored; }
};

/// One thing asked of a repository.
struct RepositoryRequest
{
    enum Method {
        Check,  ///< is the repository there?
        Put,    ///< store a local file as the entry, replacing it in one step
        Get,    ///< fetch the entry into a local file, which is replaced in one step when all has arrived
        Remove, ///< remove the entry; one that is not there is removed already
        Look,   ///< is the entry there, and how large is it?
        List,   ///< which entries are there? Not every repository can tell
    };

    Method method = Check;
    QString entry; ///< full name of the entry: one component, neither empty nor "." nor ".."
    QString path;  ///< local file: source of a Put, target of a Get, scratch of a List
    /// Of a Put: directory out of which the path must not lead, by a link either. Empty for a file of the
    /// service's own.
    QString within = {};
    /// Of a Get: bytes beyond which the entry is refused; 0 for no bound but the space that there is.
    qint64 largest = 0;
};

/// The place that holds the saved data: files stored under flat entry names.
///
/// Requests begin in the order in which they were submitted. Several may be under way at once, but never two
/// for the same entry, and they may end in any order: who needs another one waits for the end of all before.
/// Each has exactly one outcome, which is handed to its `done` from the event loop, never from within
/// `submit`. A request ends by itself within bounded time; one that fails never stops those behind it, unless
/// the place itself is found to be gone. A failed fetch leaves its local target as it was; one fails that
/// would fill more than nine tenths of what is free beside the target. Memory does not grow with the size of
/// a file, and events are served between portions of a large one. Nothing throws. Main thread only.
class Repository : public QObject
{
    Q_OBJECT

public:
    using Done = std::function<void(const RequestOutcome &)>;

    explicit Repository(RepositoryType type) : repositoryType(type) {}
    /// What is still pending gets its failure. Derived classes cancel in their own destructors, as long as
    /// they can abort.
    ~Repository() override;

    Repository(const Repository &) = delete;
    Repository &operator=(const Repository &) = delete;

    RepositoryType getRepositoryType() const { return repositoryType; }
    /// The place as it was given: a directory or a base URL, with its user information.
    virtual QString getRepositoryUrl() const = 0;

    /// Make ready what requests need (certificates, say) and log what is found. Waits; can be left out.
    virtual void setUp(Waiter &) {}

    /// True when the device's trust list is in force, or does not matter to this repository. With `refresh`,
    /// a set-up that is not complete or no longer valid is done anew.
    virtual bool checkCtlStatus(Waiter &, bool /*refresh*/) { return true; }

    /// Queue a request. `done` can be empty; it may submit, cancel, or destroy the repository.
    void submit(const RepositoryRequest &request, Done done);

    /// End everything queued and under way; each `done` is called with a failure of that text before this
    /// returns. What they submit is carried out.
    void cancelRequests(const QString &why);

    /// End what has not begun in the same way; its entries are as they were.
    void cancelQueued(const QString &why);

    /// True when a change is under way, and it would not be known what its entry holds if it were given up.
    bool hasChangesUnderWay() const;

    bool hasPendingRequests() const { return !running.empty() || !parked.isEmpty() || !queue.isEmpty(); }
    /// A number that changes whenever a transfer advances, so that a wait can tell slow from dead.
    virtual quint64 transferProgress() const { return progress; }

protected:
    using RequestNumber = quint64;

    /// Begin a request. It ends in one call of `finish`, at once or later.
    virtual void start(RequestNumber number, const RepositoryRequest &request) = 0;
    /// Forget the requests under way; `finish` must not be called for them any more.
    virtual void abort() = 0;
    /// True when an aborted request leaves its entry as it was.
    virtual bool abortKeepsEntry() const { return false; }
    /// How many requests may be under way at once.
    virtual size_t mostAtOnce() const { return 1; }
    bool isIdle() const { return running.empty(); }

    /// The most entries that are listed: more than checksum files can have lines.
    static constexpr qsizetype mostListed = 250'000;

    /// Why an entry is refused that has more bytes than may be fetched.
    static QString tooLarge(const QString &entry, qint64 limit);
    /// Why requests fail that outlive their repository.
    static QString noLongerInUse() { return "The repository is no longer in use"; }

    /// A request under way has this outcome; the next ones begin from the event loop. The repository may be
    /// destroyed before this returns.
    void finish(RequestNumber number, const RequestOutcome &outcome);
    void noteProgress() { ++progress; }

    /// The only request under way, a Put or a removal, is ready to be carried out together with the ones
    /// parked before it; the next one begins.
    void park();
    bool hasParked() const { return !parked.isEmpty(); }
    /// Begin the only request under way again after those that are parked.
    void retryAfterParked();
    /// True when no more can be parked.
    virtual bool isFull() const { return false; }
    /// Carry out what is parked; ends in one call of `finishParked`, from the event loop.
    virtual void carryOutParked() {}
    /// Forget what is parked, and give up what was begun of it; `finishParked` must not be called for it any
    /// more. What has become of each, of what was given up for that reason.
    virtual QList<RequestOutcome> abortParked(const QString & /*why*/) { return {}; }
    /// What is parked has these outcomes, in its order.
    void finishParked(const QList<RequestOutcome> &outcomes);

private:
    struct Pending
    {
        RepositoryRequest request;
        Done done;
    };

    void scheduleNext();
    void startNext();
    bool mayBegin(const RepositoryRequest &request) const;
    Pending takeOnlyRunning();
    static void tell(const Pending &pending, const RequestOutcome &outcome);

    RepositoryType repositoryType;
    bool closed = false;
    QList<Pending> queue;
    std::map<RequestNumber, Pending> running;
    RequestNumber lastNumber = 0;
    QList<Pending> parked;
    bool carryingOut = false; ///< what is parked
    quint64 progress = 0;
};
