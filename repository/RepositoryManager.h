#pragma once

#include <QObject>
#include <QString>
#include <QStringList>

enum RequestStatus { RequestFailed = 0, RequestSucceeded = 1 };

enum RepositoryType { LocalRepositoryType = 0, DistantRepositoryType = 1 };

/// The place that holds the saved data: files stored under flat entry names.
///
/// A file stored with a prefix is the entry `<prefix>++<name>`, without one `<name>`, where the name is the
/// last component of the file's path. A true result means that the operation was carried out (a local
/// directory) or accepted into the queue (a distant server); the outcome of a queued transfer is known when
/// its completion signal arrives. Nothing throws.
///
/// Signals. `repositoryOperationDone` follows every send that was taken, whether it succeeded or not.
/// `repositoryAllOperationsDone` marks the end of everything queued (a server) or of each send and fetch (a
/// directory). `repositoryManagerReady` marks the end of a single request.
class RepositoryManager : public QObject
{
    Q_OBJECT

public:
    explicit RepositoryManager(RepositoryType type);

    /// Outcome of the requests since the last reset; reading it resets status and text.
    RequestStatus getErrorStatus();
    /// Text of the last failure, empty when there is none; read it before the status.
    QString getErrorString() const { return errorString; }
    void resetErrorStatus();
    bool isInit() const { return initialized; }

    /// True while requests are queued or under way.
    virtual bool hasPendingRequests() const { return false; }
    /// A number that changes whenever a transfer advances, so that a wait can tell slow from dead.
    virtual quint64 transferProgress() const { return 0; }
    /// Forget everything queued and emit nothing from now on.
    virtual void abandon();

public Q_SLOTS:
    /// Store a local file, replacing an entry of that name.
    virtual bool sendFileToRepository(QString fullPathFile, QString prefix);
    /// Store each file in turn.
    virtual bool sendFilesToRepository(QStringList fullPathFiles, QString prefix);
    /// Fetch the entry of that full name into the local file `where`, replacing it.
    virtual bool getFileFromRepository(QString savedFilename, QString where);
    virtual bool getFilesFromRepository(QStringList savedFilenames, QString where);
    /// Delete the entry that a send of the same arguments would have written.
    virtual bool removeFileFromRepository(QString fullPathFile, QString prefix);
    virtual bool removeFilesFromRepository(QStringList fullPathFiles, QString prefix);
    virtual void setRepositoryUrl(QString url) = 0;
    virtual QString getRepositoryUrl() = 0;
    /// True when the location exists and is reachable.
    virtual bool checkRepository();
    virtual RepositoryType getRepositoryType() { return repositoryType; }

    bool sendFileToRepository(const QString &fullPathFile) { return sendFileToRepository(fullPathFile, {}); }
    bool sendFilesToRepository(const QStringList &files) { return sendFilesToRepository(files, {}); }
    bool removeFileFromRepository(const QString &fullPathFile)
    {
        return removeFileFromRepository(fullPathFile, {});
    }
    bool removeFilesFromRepository(const QStringList &files) { return removeFilesFromRepository(files, {}); }

Q_SIGNALS:
    void repositoryManagerReady();
    void repositoryAllOperationsDone();
    void repositoryOperationDone();

protected:
    bool initialized = false;
    RepositoryType repositoryType;
    RequestStatus errorStatus = RequestSucceeded;
    QString errorString;
};
