#pragma once

#include "repository/DigestingFile.h"
#include "repository/DownloadFile.h"
#include "repository/Repository.h"

#include <QFile>
#include <QTimer>

/// A repository in a directory of the device. Each entry is a regular file in it.
///
/// Contents are copied in portions of 1 MiB, one for each turn of the event loop; permissions go with them.
/// An entry is written to a hidden file of the directory (`.saverestore-incoming`, which is the name of no
/// entry) and replaced in one step, so a Put that fails or is cancelled leaves it as it was.
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
    void start(const RepositoryRequest &request) override;
    void abort() override;
    bool abortKeepsEntry() const override { return true; }

private:
    bool isInitialised() const;
    QString entryPath() const;
    QString incomingPath() const;

    bool openIncoming();
    bool replaceEntry();
    void startPut();
    void startGet();
    void copyPortion();
    void endPut(bool copied);
    void endGet(bool copied);
    RequestOutcome remove() const;

    const QString directory;
    RepositoryRequest underWay;
    QTimer turn; ///< fires once for each portion
    DigestingFile source;
    QFile incoming;
    DownloadFile download;
};
