#include "repository/DistantRepository.h"

#include "platform/logger/VYXLogger.h"

DistantRepository::DistantRepository() : RepositoryManager(DistantRepositoryType) {}

DistantRepository::DistantRepository(const QString &url) : DistantRepository()
{
    repositoryUrl = url;
}

bool DistantRepository::refuse()
{
    errorStatus = RequestFailed;
    errorString = "HTTP and HTTPS repositories are not supported yet";
    logError("%1", errorString);
    return false;
}

bool DistantRepository::sendFileToRepository(QString, QString)
{
    return refuse();
}

bool DistantRepository::getFileFromRepository(QString, QString)
{
    return refuse();
}

bool DistantRepository::removeFileFromRepository(QString, QString)
{
    return refuse();
}

void DistantRepository::setRepositoryUrl(QString url)
{
    repositoryUrl = url;
}

bool DistantRepository::checkRepository()
{
    return refuse();
}

bool DistantRepository::checkCtlStatus(bool)
{
    return !ctlCheckEnabled || refuse();
}
