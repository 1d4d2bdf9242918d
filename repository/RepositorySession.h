#pragma once

#include "repository/Repository.h"

#include <memory>

/// Whether a repository can be used.
struct RepositoryState
{
    enum Usability {
        Usable,
        Insecure,   ///< no HTTPS, and the device is not in developer mode
        NotTrusted, ///< the device's trust list is not in force
        Unreachable,
    };

    Usability usability = Usable;
    QString text; ///< why not
};

/// A repository as one operation uses it: it is held for as long as the operation runs, whatever is chosen
/// meanwhile, and its requests are waited for with events served.
///
/// When the waiter has to end, or nothing moves for 60 s, what is pending is given up and fails; so it is
/// when the session ends, then without a word to anybody. Changes that a server carries out get half a second
/// to come to their end before. That concerns every request of the repository, so
/// one session uses it at a time.
class RepositorySession
{
public:
    /// `held` must not be null; the waiter must outlive the session.
    RepositorySession(std::shared_ptr<Repository> held, Waiter &waiter);
    ~RepositorySession();

    RepositorySession(const RepositorySession &) = delete;
    RepositorySession &operator=(const RepositorySession &) = delete;

    /// Whether the repository may be used and is there: outside developer mode it has to be secure and its
    /// trust list in force. Of no meaning when the waiter has to end.
    RepositoryState state();

    /// The URL without secrets.
    QString shownUrl() const;

    /// True when a request has failed for want of an answer.
    bool lacksAnswers() const { return unanswered; }

    /// A number that grows with the bytes that have moved, and a little with other events.
    quint64 transferProgress() const { return repository->transferProgress(); }

    /// Submit a request and wait for its outcome; `givenUp` tells whether it was given up.
    RequestOutcome outcomeOf(const RepositoryRequest &request, bool *givenUp = nullptr);

    /// Fetch an entry of at most that many bytes (0: as many as fit) into a local file and wait for the
    /// outcome.
    RequestOutcome getFileAndWait(const QString &entry, const QString &path, qint64 largest = 0);

    /// Submit a request without waiting; `done` can be empty and is not called after the end of the session.
    void submit(const RepositoryRequest &request, Repository::Done done);

    /// Wait until all submitted requests have their outcome.
    void waitForRequests();

    /// Wait until the outcomes of some have made that true.
    void waitFor(const std::function<bool()> &condition);

private:
    /// Wait for something that the end of all requests brings about; false when all were given up for it.
    bool waitUntil(const std::function<bool()> &condition);
    void awaitChanges();

    std::shared_ptr<Repository> repository;
    Waiter &waiter;
    /// Number of requests without an outcome; its `done`s hold it weakly.
    std::shared_ptr<int> pending = std::make_shared<int>(0);
    bool unanswered = false;
    bool changesAwaited = false; ///< after the waiter had to end
};
