#pragma once

#include "repository/Repository.h"

#include <memory>

class Middleware;

/// A repository as one operation uses it: it is held for as long as the operation runs, whatever is chosen
/// meanwhile, and its requests are waited for with events served.
///
/// When the waiter has to end, or nothing moves for 60 s, what is pending is given up and fails; so it is
/// when the session ends, then without a word to anybody. That concerns every request of the repository, so
/// one session uses it at a time.
class RepositorySession
{
public:
    /// `held` must not be null; the middleware and the waiter must outlive the session.
    RepositorySession(std::shared_ptr<Repository> held, Middleware &middleware, Waiter &waiter);
    ~RepositorySession();

    RepositorySession(const RepositorySession &) = delete;
    RepositorySession &operator=(const RepositorySession &) = delete;

    /// True when the repository may be used and is there: outside developer mode it is secure, its trust list
    /// is in force, and it answers. Otherwise the log and a pop-up say why `operation` ("backup", "restore")
    /// is broken off; when the waiter has to end, nobody is told.
    bool isUsable(const QString &operation);

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

    std::shared_ptr<Repository> repository;
    Middleware &middleware;
    Waiter &waiter;
    /// Number of requests without an outcome; its `done`s hold it weakly.
    std::shared_ptr<int> pending = std::make_shared<int>(0);
};
