#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"
#include "repository/DistantRepository.h"
#include "repository/LocalRepository.h"
#include "repository/RepositoryUrl.h"
#include "service/VYXSaveRestore.h"

#include <QFile>

bool VYXSaveRestore::isDevMode()
{
    devMode = QFile::exists(DevicePaths::developerModeMarker());
    return devMode;
}

bool VYXSaveRestore::setRepositoryUrl(QString url)
{
    if (url.isEmpty()) {
        if (repository == nullptr) {
            logDebug("Creating new distant repository: '%1'", url);
            repository = new DistantRepository;
        }
        repository->setRepositoryUrl(url);
        ++repositoryGeneration;
        return false;
    }
    if (RepositoryUrl::isDistant(url)) {
        useDistantRepository(url);
    } else {
        useLocalRepository(url);
    }
    ++repositoryGeneration;
    connect(repository, &RepositoryManager::repositoryAllOperationsDone, this,
            &VYXSaveRestore::httpRequestFinished, Qt::UniqueConnection);
    connect(repository, &RepositoryManager::repositoryOperationDone, this, &VYXSaveRestore::httpOperationDone,
            Qt::UniqueConnection);
    return true;
}

void VYXSaveRestore::useLocalRepository(const QString &url)
{
    if (repository != nullptr && repository->getRepositoryType() == LocalRepositoryType) {
        logDebug("Changing local repository: '%1'", url);
        repository->setRepositoryUrl(url);
        if (!QFile::exists(url)) {
            logWarning("'%1' does not exist: the repository stays '%2'", url, repository->getRepositoryUrl());
        }
        return;
    }
    logDebug("Creating new local repository: '%1'", url);
    replaceRepository(new LocalRepository(url));
}

void VYXSaveRestore::useDistantRepository(const QString &url)
{
    if (repository != nullptr && repository->getRepositoryType() == DistantRepositoryType) {
        logDebug("Changing distant repository: '%1'", RepositoryUrl::forDisplay(url));
        repository->setRepositoryUrl(url);
    } else {
        logDebug("Creating new distant repository: '%1'", RepositoryUrl::forDisplay(url));
        replaceRepository(new DistantRepository(url));
    }
    auto *const distant = static_cast<DistantRepository *>(repository);
    if (!isDevMode()) {
        distant->ctlCheckEnabled = true;
    } else if (RepositoryUrl::isSecure(url)) {
        distant->ctlCheckEnabled = false;
        logDebug("DevMode: no CTL check");
    }
}

void VYXSaveRestore::replaceRepository(RepositoryManager *replacement)
{
    if (repository != nullptr) {
        repository->abandon();
        // Someone further up the stack may still be inside one of its functions.
        repository->deleteLater();
    }
    repository = replacement;
    uncountedSends = 0;
}

bool VYXSaveRestore::repositoryIsUsable(const QString &operation)
{
    const QString url = repository->getRepositoryUrl();
    const auto refuse = [&](const QString &reason) {
        const QString text = QString("%1: abort %2 operations.").arg(reason, operation);
        logWarning("%1", text);
        showFailure(text);
        return false;
    };
    if (!isDevMode() && !RepositoryUrl::isSecure(url)) {
        return refuse("Unsecured URL");
    }
    if (auto *distant = qobject_cast<DistantRepository *>(repository); distant != nullptr) {
        // The developer mode may have ended since the URL was set.
        distant->ctlCheckEnabled = distant->ctlCheckEnabled || !devMode;
        if (RepositoryUrl::isSecure(url) && !distant->checkCtlStatus(true)) {
            return refuse("CTL is not deployed");
        }
    }
    if (!repository->checkRepository()) {
        logWarning("Connection to repository failed (%1).", RepositoryUrl::forDisplay(url));
        showFailure("Connection to repository failed.", repository->getErrorString());
        return false;
    }
    return true;
}
