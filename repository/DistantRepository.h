#pragma once

#include "repository/DeleteClient.h"
#include "repository/DownloadFile.h"
#include "repository/RepositoryManager.h"

#include <QFile>
#include <QList>
#include <QNetworkAccessManager>
#include <QPointer>

#include <chrono>
#include <memory>

class QNetworkReply;
class SecureConnection;

/// A transfer that waits for its turn.
struct RepositoryRequest
{
    QString method; ///< "PUT", "GET" or "DELETE"
    QString first;  ///< local file; for a GET the entry's name
    QString second; ///< prefix; for a GET the local target
};

/// A repository on an HTTP or HTTPS server: each entry is a resource directly below the base URL.
///
/// Requests are queued and carried out one at a time, in order; an operation returns when its request is
/// queued. A request ends when the server has answered, when the connection fails, or after 30 s without any
/// progress; a failed one never stops the queue. Redirects are not followed; every status outside 2xx is a
/// failure. With HTTPS each request carries the device's certificate and trusts only the device's certificate
/// authorities.
///
/// Memory does not grow with the size of a file.
class DistantRepository : public RepositoryManager
{
    Q_OBJECT

public:
    DistantRepository();
    explicit DistantRepository(const QString &url);
    ~DistantRepository() override;

    DistantRepository(const DistantRepository &) = delete;
    DistantRepository &operator=(const DistantRepository &) = delete;

    /// True when the device's trust list is in force, or when `ctlCheckEnabled` is false. With `refresh`, a
    /// configuration that is not complete or no longer valid is set up anew.
    bool checkCtlStatus(bool refresh);

    /// The trust list is looked at; cleared in developer mode.
    bool ctlCheckEnabled = true;

    /// How long a request may go without any progress.
    void setInactivityLimit(std::chrono::milliseconds limit) { inactivityLimit = limit; }

    bool hasPendingRequests() const override { return busy || !requestQueue.isEmpty(); }
    quint64 transferProgress() const override { return progress; }
    void abandon() override;

    using RepositoryManager::removeFileFromRepository;
    using RepositoryManager::removeFilesFromRepository;
    using RepositoryManager::sendFilesToRepository;
    using RepositoryManager::sendFileToRepository;

public Q_SLOTS:
    bool sendFileToRepository(QString fullPathFile, QString prefix) override;
    bool sendFilesToRepository(QStringList fullPathFiles, QString prefix) override;
    bool getFileFromRepository(QString savedFilename, QString where) override;
    bool getFilesFromRepository(QStringList savedFilenames, QString where) override;
    bool removeFileFromRepository(QString fullPathFile, QString prefix) override;
    bool removeFilesFromRepository(QStringList fullPathFiles, QString prefix) override;
    void setRepositoryUrl(QString url) override;
    QString getRepositoryUrl() override { return repositoryUrl; }
    /// GET the base URL and wait for the answer; transfers that are under way end first.
    bool checkRepository() override;
    RepositoryType getRepositoryType() override { return DistantRepositoryType; }

Q_SIGNALS:
    void newRepositoryOperation();

private Q_SLOTS:
    void handleNewRequest();
    void handlePutFinished(QNetworkReply *reply);
    void handleGetFinished(QNetworkReply *reply);
    void handlePutProgress(qint64 done, qint64 total);
    void handleGetProgess(qint64 done, qint64 total);
    void handleDeleteFinished(const HttpResponseHeader &header);
    void handleDeleteFinished(int id, bool error);
    void slotCheckConnection(QNetworkReply *reply);
    void handleSslErrors(QNetworkReply *reply, const QList<QSslError> &errors);
    void sslError(const QList<QSslError> &errors);

private:
    bool enqueue(const QString &method, const QString &first, const QString &second);
    bool start(const RepositoryRequest &request);
    bool startPut(const RepositoryRequest &request);
    bool startGet(const RepositoryRequest &request);
    bool startDelete(const RepositoryRequest &request);
    void finishRequest();
    void fail(const QString &text);
    void logProgress(const char *format, qint64 done, qint64 total);
    QNetworkRequest requestFor(const QUrl &url) const;
    void dropRequests();

    QList<RepositoryRequest> requestQueue;
    QString repositoryUrl;
    bool secureMode = false;
    std::unique_ptr<QNetworkAccessManager> networkManager;
    QPointer<QNetworkReply> currentReply;
    bool busy = false;
    std::unique_ptr<DeleteClient> httpClient;
    std::unique_ptr<SecureConnection> secureConnection;
    QFile transferFile;
    DownloadFile download;
    bool startingRequests = false;
    bool sendFailedAtStart = false;
    int currentDelete = 0;
    int answeredDelete = 0;
    quint64 progress = 0;
    std::chrono::milliseconds inactivityLimit = std::chrono::seconds(30);
};
