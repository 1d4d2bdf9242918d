#include "repository/DistantRepository.h"
#include "repository/LocalRepository.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

class tst_repository : public QObject
{
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> place;
    std::unique_ptr<QTemporaryDir> local;
    std::unique_ptr<LocalRepository> repository;
    QStringList signalled;

    QString file(const QString &name, const QByteArray &content = "content") const
    {
        QFile target(local->filePath(name));
        if (!target.open(QIODevice::WriteOnly)) {
            qFatal("no file");
        }
        target.write(content);
        return target.fileName();
    }

    static QByteArray content(const QString &path)
    {
        QFile target(path);
        return target.open(QIODevice::ReadOnly) ? target.readAll() : QByteArray("<none>");
    }

    void watch(RepositoryManager &watched)
    {
        connect(&watched, &RepositoryManager::repositoryManagerReady, this, [this] { signalled << "ready"; });
        connect(&watched, &RepositoryManager::repositoryAllOperationsDone, this,
                [this] { signalled << "all"; });
        connect(&watched, &RepositoryManager::repositoryOperationDone, this, [this] { signalled << "one"; });
    }

    QStringList takeSignals() { return std::exchange(signalled, {}); }

private Q_SLOTS:
    void init()
    {
        place = std::make_unique<QTemporaryDir>();
        local = std::make_unique<QTemporaryDir>();
        repository = std::make_unique<LocalRepository>(place->path());
        signalled.clear();
        watch(*repository);
    }

    void namesGoThere_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("prefix");
        QTest::addColumn<QString>("entry");
        QTest::newRow("prefix") << "a.cksum"
                                << "mod"
                                << "mod++a.cksum";
        QTest::newRow("no prefix") << "a.cksum"
                                   << ""
                                   << "a.cksum";
        QTest::newRow("odd") << "it's [1] ü 日本 \"x\" $HOME %41 #1?.jpg"
                             << "My Pictures"
                             << "My Pictures++it's [1] ü 日本 \"x\" $HOME %41 #1?.jpg";
        QTest::newRow("dash") << "-rf"
                              << ""
                              << "-rf";
        QTest::newRow("placeholder") << "%1%2"
                                     << "%3"
                                     << "%3++%1%2";
    }
    void namesGoThere()
    {
        QFETCH(QString, name);
        QFETCH(QString, prefix);
        QFETCH(QString, entry);
        const QString path = file(name);
        QVERIFY(repository->sendFileToRepository(path, prefix));
        QCOMPARE(takeSignals(), QStringList({"all", "one"}));
        QCOMPARE(content(place->filePath(entry)), "content");
        file(name, "longer content");
        QVERIFY(repository->sendFileToRepository(path, prefix));
        const QString back = local->filePath("back");
        takeSignals();
        QVERIFY(repository->getFileFromRepository(entry, back));
        QCOMPARE(takeSignals(), QStringList({"ready", "all"}));
        QCOMPARE(content(back), "longer content");
        QVERIFY(repository->removeFileFromRepository(path, prefix));
        QCOMPARE(takeSignals(), QStringList({"ready"}));
        QVERIFY(QDir(place->path()).isEmpty());
    }

    void failures()
    {
        const QString back = file("back");
        QVERIFY(!repository->getFileFromRepository("missing", back));
        QCOMPARE(takeSignals(), QStringList({"ready", "all"}));
        QVERIFY(!QFile::exists(back));
        QVERIFY(!repository->sendFileToRepository(local->filePath("missing"), ""));
        QCOMPARE(takeSignals(), QStringList({"all", "one"}));
        QVERIFY(repository->removeFileFromRepository("never there"));
        QCOMPARE(takeSignals(), QStringList({"ready"}));
        QCOMPARE(repository->getErrorStatus(), RequestSucceeded);
    }

    void pathsThatNameNoFile_data()
    {
        QTest::addColumn<QString>("path");
        for (const char *path : {"", "/", "//", "..", "/tmp/..", "."}) {
            QTest::newRow(path) << path;
        }
    }
    void pathsThatNameNoFile()
    {
        QFETCH(QString, path);
        file("kept");
        QVERIFY(repository->sendFileToRepository(local->filePath("kept"), ""));
        QVERIFY(!repository->sendFileToRepository(path, ""));
        QVERIFY(!repository->removeFileFromRepository(path, ""));
        QCOMPARE(QDir(place->path()).entryList(QDir::Files), QStringList{"kept"});
    }

    void lists()
    {
        QVERIFY(repository->sendFilesToRepository(QStringList()));
        const QStringList files = {file("a"), local->filePath("missing"), file("b")};
        QVERIFY(!repository->sendFilesToRepository(files, "p"));
        QCOMPARE(QDir(place->path()).entryList(QDir::Files), QStringList{"p++a"});
        QVERIFY(repository->sendFilesToRepository({file("a"), file("b")}, "p"));
        QVERIFY(repository->removeFilesFromRepository({"a", "b"}, "p"));
        QVERIFY(QDir(place->path()).isEmpty());
    }

    void notInitialised()
    {
        LocalRepository nowhere(QString("/no such directory"));
        watch(nowhere);
        QVERIFY(!nowhere.checkRepository());
        QVERIFY(!nowhere.sendFileToRepository(file("a"), ""));
        QCOMPARE(takeSignals(), QStringList());
        QVERIFY(!nowhere.removeFileFromRepository("a", ""));
        QCOMPARE(takeSignals(), QStringList{"ready"});
        nowhere.setRepositoryUrl("/no such directory either");
        QVERIFY(!nowhere.isInit());
        nowhere.setRepositoryUrl(place->path());
        QVERIFY(nowhere.isInit() && nowhere.checkRepository());
        QVERIFY(nowhere.sendFileToRepository(file("a"), ""));
        nowhere.setRepositoryUrl("/no such directory either");
        QCOMPARE(nowhere.getRepositoryUrl(), place->path());
        QDir(place->path()).removeRecursively();
        QVERIFY(!nowhere.checkRepository());
    }

    void workingDirectoryIsNoRepository()
    {
        const QString before = QDir::currentPath();
        QDir::setCurrent(place->path());
        QVERIFY(!repository->checkRepository());
        QVERIFY(!repository->sendFileToRepository(file("a"), ""));
        QDir::setCurrent(before);
        QVERIFY(repository->checkRepository());
    }

    void serversAreRefusedWithAText()
    {
        DistantRepository distant("http://localhost/save");
        QCOMPARE(distant.getRepositoryType(), DistantRepositoryType);
        QVERIFY(!distant.checkRepository());
        QVERIFY(!distant.getErrorString().isEmpty());
        QCOMPARE(distant.getErrorStatus(), RequestFailed);
        QCOMPARE(distant.getErrorStatus(), RequestSucceeded);
        QVERIFY(distant.getErrorString().isEmpty());
        QVERIFY(!distant.sendFileToRepository(file("a")));
        QVERIFY(!distant.checkCtlStatus(true));
        distant.ctlCheckEnabled = false;
        QVERIFY(distant.checkCtlStatus(true));
    }
};

QTEST_GUILESS_MAIN(tst_repository)
#include "tst_repository.moc"
