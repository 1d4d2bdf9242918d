#pragma once

#include "platform/core/Waiter.h"
#include "repository/Repository.h"
#include "tests/support/TestDevice.h"

#include <QTest>

/// What tests of repositories share: files of a client, and requests with their outcomes.
class RepositoryTest : public QObject
{
protected:
    using Method = RepositoryRequest::Method;

    std::unique_ptr<QTemporaryDir> local;
    QStringList outcomes; ///< "word entry" of each request that has ended
    QString reason;       ///< of the last failure

    void startAfresh()
    {
        local = std::make_unique<QTemporaryDir>();
        outcomes.clear();
        reason.clear();
    }

    QString file(const QString &name, const QByteArray &content = "content") const
    {
        writeFile(local->filePath(name), content);
        return local->filePath(name);
    }

    QByteArray content(const QString &name) const { return readFile(local->filePath(name), "<none>"); }

    QStringList localFiles() const { return QDir(local->path()).entryList(QDir::Files | QDir::Hidden); }

    /// The outcome in a word: a failure that has left the entry as it was is "kept".
    static QString word(const RequestOutcome &outcome)
    {
        const QString failed = outcome.entryUntouched ? "kept" : "failed";
        return outcome.stored() ? "stored" : (outcome.kind == RequestOutcome::Absent ? "absent" : failed);
    }

    Repository::Done noted(const QString &entry)
    {
        return [this, entry](const RequestOutcome &outcome) {
            outcomes << word(outcome) + " " + entry;
            reason = outcome.text;
        };
    }

    void submit(Repository &repository, Method method, const QString &entry, const QString &path = {})
    {
        const qsizetype before = outcomes.size();
        repository.submit({method, entry, path}, noted(entry));
        if (outcomes.size() != before) {
            outcomes << "told from within submit";
        }
    }

    /// The outcome of this request, which is the last.
    QString ask(Repository &repository, Method method, const QString &entry, const QString &path = {})
    {
        submit(repository, method, entry, path);
        return finished(repository) ? outcomes.last().section(' ', 0, 0) : "pending";
    }

    static bool finished(const Repository &repository)
    {
        const auto idle = [&] { return !repository.hasPendingRequests(); };
        return Waiter().waitUntil(idle, std::chrono::seconds(20)) == WaitOutcome::Met;
    }

    /// Let the request at the head of the queue get somewhere, but not to its end.
    static bool underWay(const Repository &repository)
    {
        const quint64 before = repository.transferProgress();
        TestDevice::waitUntil([&] { return repository.transferProgress() != before; });
        for (int turn = 0; turn < 3; ++turn) {
            QCoreApplication::processEvents();
        }
        return repository.hasPendingRequests();
    }
};
