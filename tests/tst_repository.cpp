#include "repository/DistantRepository.h"
#include "repository/LocalRepository.h"
#include "tests/support/NginxServer.h"
#include "tests/support/TestDevice.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

/// What every kind of repository has to do, and what is the directory's own.
class tst_repository : public QObject
{
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> root;
    std::unique_ptr<QTemporaryDir> place;
    std::unique_ptr<QTemporaryDir> local;
    std::unique_ptr<NginxServer> http;
    std::unique_ptr<NginxServer> https;
    std::unique_ptr<RepositoryManager> any;
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

    /// A repository of the kind of the global data row, empty.
    void makeAny()
    {
        QFETCH_GLOBAL(QString, kind);
        if (kind == "directory") {
            any = std::make_unique<LocalRepository>(place->path());
        } else {
            any = std::make_unique<DistantRepository>((kind == "HTTP" ? http : https)->url());
            QDir((kind == "HTTP" ? http : https)->store()).removeRecursively();
            QDir().mkpath((kind == "HTTP" ? http : https)->store());
        }
        watch(*any);
    }

    QDir store() const
    {
        QFETCH_GLOBAL(QString, kind);
        return QDir(kind == "directory" ? place->path() : (kind == "HTTP" ? http : https)->store());
    }

    bool finished() const
    {
        return TestDevice::waitUntil([this] { return !any->hasPendingRequests(); });
    }

private Q_SLOTS:
    void initTestCase_data()
    {
        QTest::addColumn<QString>("kind");
        for (const char *kind : {"directory", "HTTP", "HTTPS"}) {
            QTest::newRow(kind) << kind;
        }
    }

    void initTestCase()
    {
        root = std::make_unique<QTemporaryDir>();
        qputenv("VYX_DEVICE_ROOT", root->path().toUtf8());
        NginxServer::installTool(root->path());
        http = std::make_unique<NginxServer>();
        https = std::make_unique<NginxServer>("server");
        QVERIFY(http->isRunning() && https->isRunning());
    }

    void cleanupTestCase()
    {
        http.reset();
        https.reset();
    }

    void init()
    {
        place = std::make_unique<QTemporaryDir>();
        local = std::make_unique<QTemporaryDir>();
        repository = std::make_unique<LocalRepository>(place->path());
        watch(*repository);
        makeAny();
        signalled.clear();
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
        QTest::newRow("backslash") << "a\\b;c&d|e"
                                   << ""
                                   << "a\\b;c&d|e";
    }
    void namesGoThere()
    {
        QFETCH(QString, name);
        QFETCH(QString, prefix);
        QFETCH(QString, entry);
        const QString path = file(name);
        QVERIFY(any->sendFileToRepository(path, prefix));
        QVERIFY(finished());
        QCOMPARE(takeSignals().filter(QRegularExpression("all|one")), QStringList({"all", "one"}));
        QCOMPARE(store().entryList(QDir::Files | QDir::Hidden), QStringList{entry});
        file(name, "longer content");
        QVERIFY(any->sendFileToRepository(path, prefix));
        QVERIFY(finished());
        const QString back = local->filePath("back");
        takeSignals();
        QVERIFY(any->getFileFromRepository(entry, back));
        QVERIFY(finished());
        QCOMPARE(takeSignals().count("all"), 1);
        QCOMPARE(content(back), "longer content");
        QVERIFY(any->removeFileFromRepository(path, prefix));
        QVERIFY(finished());
        QVERIFY(takeSignals().contains("ready"));
        QVERIFY(store().isEmpty());
        QCOMPARE(any->getErrorStatus(), RequestSucceeded);
    }

    void contents_data()
    {
        QTest::addColumn<int>("size");
        QTest::newRow("empty") << 0;
        QTest::newRow("one byte") << 1;
        QTest::newRow("large") << 30000000;
    }
    void contents()
    {
        QFETCH(int, size);
        QByteArray bytes(size, 'x');
        for (qsizetype index = 0; index < bytes.size(); index += 4099) {
            bytes[index] = static_cast<char>(index);
        }
        QVERIFY(any->checkRepository());
        QVERIFY(any->sendFileToRepository(file("a", bytes)));
        QVERIFY(any->getFileFromRepository("a", local->filePath("back")));
        QVERIFY(finished());
        QVERIFY(content(local->filePath("back")) == bytes);
        QCOMPARE(any->getErrorStatus(), RequestSucceeded);
    }

    void entriesThatAreMissing()
    {
        const QString back = file("back");
        any->getFileFromRepository("missing", back);
        QVERIFY(finished());
        QVERIFY(!QFile::exists(back));
        QVERIFY(any->removeFileFromRepository("never there"));
        QVERIFY(finished());
        any->sendFileToRepository(file("a"));
        QVERIFY(finished());
        QCOMPARE(store().entryList(QDir::Files), QStringList{"a"});
    }

    void pathsThatNameNoFile()
    {
        for (const char *path : {"", "/", "//", "..", "/tmp/..", "."}) {
            QVERIFY(!any->sendFileToRepository(path, ""));
            QVERIFY(!any->removeFileFromRepository(path, ""));
        }
        QVERIFY(!any->hasPendingRequests());
        QVERIFY(any->sendFilesToRepository(QStringList()));
        QVERIFY(store().isEmpty());
    }

    void manyFiles()
    {
        QStringList names;
        for (int number = 0; number < 60; ++number) {
            names << file(QString("f%1").arg(number), QByteArray::number(number));
        }
        QVERIFY(any->sendFilesToRepository(names, "p"));
        QVERIFY(finished());
        QCOMPARE(takeSignals().count("one"), names.size());
        QCOMPARE(store().entryList(QDir::Files).size(), names.size());
        QVERIFY(any->removeFilesFromRepository(names, "p"));
        QVERIFY(finished());
        QVERIFY(store().isEmpty());
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
};

QTEST_GUILESS_MAIN(tst_repository)
#include "tst_repository.moc"
