#pragma once

#include "repository/RepositoryManager.h"
#include "tests/support/TestDevice.h"

/// What tests of repositories share: files of a client, and the signals that repositories send.
class RepositoryTest : public QObject
{
protected:
    std::unique_ptr<QTemporaryDir> local;
    QStringList signalled;

    void startAfresh()
    {
        local = std::make_unique<QTemporaryDir>();
        signalled.clear();
    }

    QString file(const QString &name, const QByteArray &content = "content") const
    {
        writeFile(local->filePath(name), content);
        return local->filePath(name);
    }

    QByteArray content(const QString &name) const { return readFile(local->filePath(name), "<none>"); }

    void watch(RepositoryManager &watched)
    {
        const auto note = [this](const char *signal) { return [=, this] { signalled << signal; }; };
        connect(&watched, &RepositoryManager::repositoryManagerReady, this, note("ready"));
        connect(&watched, &RepositoryManager::repositoryAllOperationsDone, this, note("all"));
        connect(&watched, &RepositoryManager::repositoryOperationDone, this, note("one"));
    }

    static bool finished(const RepositoryManager &repository)
    {
        return TestDevice::waitUntil([&] { return !repository.hasPendingRequests(); });
    }
};
