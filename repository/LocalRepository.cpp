#include "repository/LocalRepository.h"

#include "catalogue/ItemNames.h"
#include "platform/logger/VYXLogger.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>

LocalRepository::LocalRepository() : RepositoryManager(LocalRepositoryType), saveDirectory(QString()) {}

LocalRepository::LocalRepository(const QString &dirName) : LocalRepository()
{
    if (!setSaveDirectory(dirName)) {
        logWarning("Invalid save/restore directory: '%1'", dirName);
    }
}

LocalRepository::LocalRepository(const QDir &dir) : LocalRepository()
{
    if (!setSaveDirectory(dir)) {
        logWarning("Invalid save/restore directory: '%1'", dir.dirName());
    }
}

bool LocalRepository::setSaveDirectory(QDir dir)
{
    if (!dir.exists()) {
        return false;
    }
    saveDirectory = dir;
    return true;
}

bool LocalRepository::setSaveDirectory(QString dirName)
{
    if (dirName.isEmpty() || !saveDirectory.exists(dirName)) {
        saveDirectory = QDir(QString());
        return false;
    }
    saveDirectory = QDir(dirName);
    return true;
}

bool LocalRepository::isDirectoryInitialized() const
{
    return !(saveDirectory == QDir("."));
}

bool LocalRepository::acceptsName(const QString &fullPathFile) const
{
    const QString name = ItemNames::lastComponent(fullPathFile);
    if (name.isEmpty() || name == "." || name == "..") {
        logError("'%1' names no file of the repository", fullPathFile);
        return false;
    }
    return true;
}

QString LocalRepository::entryPath(const QString &fullPathFile, const QString &prefix) const
{
    const ItemNames::EntryName entry = {prefix, ItemNames::lastComponent(fullPathFile)};
    return QString("%1/%2").arg(saveDirectory.path(), entry.text());
}

bool LocalRepository::sendFileToRepository(QString fullPathFile, QString prefix)
{
    if (!isDirectoryInitialized()) {
        logError("Local save directory not initialized!");
        return false;
    }
    if (!acceptsName(fullPathFile)) {
        return false;
    }
    const QString name = ItemNames::lastComponent(fullPathFile);
    const QString entry = entryPath(fullPathFile, prefix);
    if (QFile::exists(entry)) {
        logDebug("File '%1' exists: updating", entry);
        QFile::remove(entry);
    }
    const bool copied = QFile::copy(fullPathFile, entry);
    if (copied) {
        logDebug("File '%1' saved into '%2'", name, saveDirectory.path());
    } else {
        logError("Saving file '%1' (%2) into '%3' failed", name, fullPathFile, saveDirectory.path());
    }
    Q_EMIT repositoryAllOperationsDone();
    Q_EMIT repositoryOperationDone();
    return copied;
}

bool LocalRepository::getFileFromRepository(QString savedFilename, QString where)
{
    if (QFile::exists(where)) {
        logDebug("File '%1' exists: updating", where);
        QFile::remove(where);
    }
    const QString source = QString("%1/%2").arg(saveDirectory.absolutePath(), savedFilename);
    const bool copied = QFile::copy(source, where);
    if (copied) {
        logDebug("File '%1' copied into '%2'", savedFilename, where);
    } else {
        logError("Copying file '%1' (%2) into '%3' failed", savedFilename, source, where);
    }
    Q_EMIT repositoryManagerReady();
    Q_EMIT repositoryAllOperationsDone();
    return copied;
}

bool LocalRepository::removeFileFromRepository(QString fullPathFile, QString prefix)
{
    if (!isDirectoryInitialized()) {
        logError("Local save directory not initialized!");
        Q_EMIT repositoryManagerReady();
        return false;
    }
    if (!acceptsName(fullPathFile)) {
        Q_EMIT repositoryManagerReady();
        return false;
    }
    const QString entry = entryPath(fullPathFile, prefix);
    if (!QFile::exists(entry)) {
        Q_EMIT repositoryManagerReady();
        return true;
    }
    logDebug("Removing file '%1'", entry);
    Q_EMIT repositoryManagerReady();
    return QFile::remove(entry);
}

bool LocalRepository::sendFilesToRepository(QStringList fullPathFiles, QString prefix)
{
    return std::all_of(fullPathFiles.cbegin(), fullPathFiles.cend(),
                       [&](const QString &file) { return sendFileToRepository(file, prefix); });
}

bool LocalRepository::getFilesFromRepository(QStringList savedFilenames, QString where)
{
    return std::all_of(savedFilenames.cbegin(), savedFilenames.cend(),
                       [&](const QString &file) { return getFileFromRepository(file, where); });
}

bool LocalRepository::removeFilesFromRepository(QStringList fullPathFiles, QString prefix)
{
    return std::all_of(fullPathFiles.cbegin(), fullPathFiles.cend(),
                       [&](const QString &file) { return removeFileFromRepository(file, prefix); });
}

void LocalRepository::setRepositoryUrl(QString url)
{
    if (!QFileInfo::exists(url)) {
        logDebug("Could not change local repository to '%2'", url);
        return;
    }
    logDebug("Change local repository from '%1' to '%2'", saveDirectory.path(), url);
    setSaveDirectory(url);
    initialized = true;
}

bool LocalRepository::checkRepository()
{
    return isDirectoryInitialized() && saveDirectory.exists();
}
