#include "repository/RepositoryManager.h"

RepositoryManager::RepositoryManager(RepositoryType type) : repositoryType(type) {}

RequestStatus RepositoryManager::getErrorStatus()
{
    const RequestStatus status = errorStatus;
    resetErrorStatus();
    return status;
}

void RepositoryManager::resetErrorStatus()
{
    errorStatus = RequestSucceeded;
    errorString.clear();
}

void RepositoryManager::abandon()
{
    disconnect();
}

bool RepositoryManager::sendFileToRepository(QString, QString)
{
    return false;
}

bool RepositoryManager::sendFilesToRepository(QStringList, QString)
{
    return false;
}

bool RepositoryManager::getFileFromRepository(QString, QString)
{
    return false;
}

bool RepositoryManager::getFilesFromRepository(QStringList, QString)
{
    return false;
}

bool RepositoryManager::removeFileFromRepository(QString, QString)
{
    return false;
}

bool RepositoryManager::removeFilesFromRepository(QStringList, QString)
{
    return false;
}

bool RepositoryManager::checkRepository()
{
    return false;
}
