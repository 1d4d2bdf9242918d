#pragma once

#include "repository/RepositoryManager.h"

/// A repository on an HTTP or HTTPS server, known by its base URL.
///
/// Transfers are not available: every operation is refused with an error text that says so, the repository
/// check is false, and the state of the device's trust list (CTL) counts as not secured unless its check is
/// switched off.
class DistantRepository : public RepositoryManager
{
    Q_OBJECT

public:
    DistantRepository();
    explicit DistantRepository(const QString &url);

    /// True when the device's trust list is deployed, or when `ctlCheckEnabled` is false. `refresh` asks for
    /// the TLS set-up to be renewed.
    bool checkCtlStatus(bool refresh);

    /// The trust list is looked at; cleared in developer mode.
    bool ctlCheckEnabled = true;

    using RepositoryManager::removeFileFromRepository;
    using RepositoryManager::removeFilesFromRepository;
    using RepositoryManager::sendFilesToRepository;
    using RepositoryManager::sendFileToRepository;

public Q_SLOTS:
    bool sendFileToRepository(QString fullPathFile, QString prefix) override;
    bool getFileFromRepository(QString savedFilename, QString where) override;
    bool removeFileFromRepository(QString fullPathFile, QString prefix) override;
    void setRepositoryUrl(QString url) override;
    QString getRepositoryUrl() override { return repositoryUrl; }
    bool checkRepository() override;
    RepositoryType getRepositoryType() override { return DistantRepositoryType; }

private:
    bool refuse();

    QString repositoryUrl;
};
