#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"
#include "repository/DistantRepository.h"
#include "repository/LocalRepository.h"
#include "repository/RepositoryUrl.h"
#include "service/VYXSaveRestore.h"

#include <QFile>

bool VYXSaveRestore::setRepositoryUrl(QString url)
{
    const bool distant = url.isEmpty() || RepositoryUrl::isDistant(url);
    const RepositoryType type = distant ? DistantRepositoryType : LocalRepositoryType;
    const bool sameKind = repository && repository->getRepositoryType() == type;
    logDebug(sameKind ? "Changing %1 repository: '%2'" : "Creating new %1 repository: '%2'",
             distant ? "distant" : "local", RepositoryUrl::forDisplay(url));
    if (sameKind && !distant && !QFile::exists(url)) {
        logWarning("'%1' does not exist: the repository stays '%2'", RepositoryUrl::forDisplay(url),
                   repository->getRepositoryUrl());
        return true;
    }
    const std::shared_ptr<Repository> chosen = makeRepository(url);
    if (repository && repository->getRepositoryUrl() == chosen->getRepositoryUrl() && sameKind) {
        return !url.isEmpty();
    }
    repository = chosen;
    operations.repositoryChanged();
    checkCapability();
    showStatus();
    operations.whenFree([this, chosen] { chosen->setUp(waiter); });
    return !url.isEmpty();
}

/// A repository is never pulled away: an operation that runs holds the one it began with.
std::shared_ptr<Repository> VYXSaveRestore::makeRepository(const QString &url) const
{
    if (!url.isEmpty() && !RepositoryUrl::isDistant(url)) {
        return std::make_shared<LocalRepository>(url);
    }
    const auto distant = std::make_shared<DistantRepository>(url);
    distant->setInactivityLimit(limits.serverSilence);
    const bool developerMode = QFile::exists(DevicePaths::developerModeMarker());
    if (developerMode && RepositoryUrl::isSecure(url)) {
        distant->ctlCheckEnabled = false;
        logDebug("DevMode: no CTL check");
    }
    return distant;
}
