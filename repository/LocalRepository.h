#pragma once

#include "repository/DigestingFile.h"
#include "repository/DownloadFile.h"
#include "repository/EntryChanges.h"
#include "repository/Repository.h"

#include <QDirIterator>
#include <QFile>
#include <QTimer>

#include <chrono>

/// A repository in a directory of the device. Each entry is a regular file in it.
///
/// Contents are copied in portions of 1 MiB, one for each turn of the event loop; permissions go with them.
/// Entries are written to hidden files of the directory (`.saverestore-incoming.*`, which are the names of no
/// entries). When all that were submitted together are written, or 64 MiB of them, or when the disk is full,
/// they are brought to the disk at once and then replace the entries, each in one step. So a Put that fails
/// or is cancelled leaves its entry as it was, and one that was stored is on the disk.
///
/// The directory counts as not initialised while it does not exist or is the process's working directory;
/// every request then fails.
class LocalRepository : public Repository
{
    Q_OBJECT

public:
    /// A relative name is resolved against the working directory at the time of a request.
    explicit LocalRepository(const QString &directory);
    ~LocalRepository() override;

    /// The directory's absolute path when it exists, else the text as it was given.
    QString getRepositoryUrl() const override;

protected:
    void start(RequestNumber number, const RepositoryRequest &request) override;
    void abort() override;
    bool abortKeepsEntry() const override { return true; }
    bool isFull() const override;
    void carryOutParked() override;
    QList<RequestOutcome> abortParked(const QString &why) override;

private:
    bool isInitialised() const;
    QString entryPath() const;
    void dropLeftovers() const;

    bool openIncoming();
    bool isWritten(bool copied);
    void startPut();
    void startGet();
    void copyPortion();
    void endPut(bool copied);
    void endGet(bool copied);
    void remove();
    RequestOutcome look() const;
    void advance();
    void listPortion();
    void parkChange(const QByteArray &written, const RequestOutcome &success, const QString &failureText);
    RequestOutcome outcomeOf(qsizetype number, EntryChanges::Result result) const;
    void forgetParked();

    const QString directory;
    RepositoryRequest underWay;
    RequestNumber underWayNumber = 0;
    QTimer turn; ///< fires once for each portion of what is under way
    DigestingFile source;
    QFile incoming;
    DownloadFile download;
    std::unique_ptr<QDirIterator> listing;
    RequestOutcome listed;

    /// What is parked.
    struct Change
    {
        EntryChange change;
        RequestOutcome success;
        QString failureText;
    };
    QList<Change> parkedChanges;
    qint64 parkedBytes = 0;
    std::unique_ptr<EntryChanges> underWayTogether;
    QTimer patience; ///< a slow disk may take long for what is carried out together
    std::chrono::seconds waited = {};
};
