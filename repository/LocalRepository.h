#pragma once

#include "repository/RepositoryManager.h"

#include <QDir>

/// A repository in a directory of the device. Every operation is carried out at once and signals its
/// completion before it returns.
///
/// The directory counts as not initialised while it is the process's working directory, which is also the
/// state after construction without a valid directory; sends and removals are then refused.
class LocalRepository : public RepositoryManager
{
    Q_OBJECT

public:
    LocalRepository();
    explicit LocalRepository(const QString &dirName);
    explicit LocalRepository(const QDir &dir);

    using RepositoryManager::removeFileFromRepository;
    using RepositoryManager::removeFilesFromRepository;
    using RepositoryManager::sendFilesToRepository;
    using RepositoryManager::sendFileToRepository;

public Q_SLOTS:
    /// False, and no change, when the directory does not exist.
    bool setSaveDirectory(QDir dir);
    /// A relative name is resolved against the current directory. False, and no directory, when the name is
    /// empty or names nothing.
    bool setSaveDirectory(QString dirName);
    QDir getSaveDirectory() const { return saveDirectory; }

    bool sendFileToRepository(QString fullPathFile, QString prefix) override;
    bool sendFilesToRepository(QStringList fullPathFiles, QString prefix) override;
    bool getFileFromRepository(QString savedFilename, QString where) override;
    bool getFilesFromRepository(QStringList savedFilenames, QString where) override;
    bool removeFileFromRepository(QString fullPathFile, QString prefix) override;
    bool removeFilesFromRepository(QStringList fullPathFiles, QString prefix) override;
    void setRepositoryUrl(QString url) override;
    QString getRepositoryUrl() override { return saveDirectory.absolutePath(); }
    bool checkRepository() override;
    RepositoryType getRepositoryType() override { return repositoryType; }

private:
    bool isDirectoryInitialized() const;
    bool acceptsName(const QString &fullPathFile) const;
    QString entryPath(const QString &fullPathFile, const QString &prefix) const;

    QDir saveDirectory;
};
