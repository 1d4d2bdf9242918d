#include "repository/DistantRepository.h"
#include "repository/RepositoryUrl.h"
#include "tests/support/StoreServer.h"
#include "tests/support/TestDevice.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace std::chrono_literals;

/// The client of a server, against servers that do what they should not.
class tst_distant : public QObject
{
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> local;
    std::unique_ptr<StoreServer> server;
    std::unique_ptr<DistantRepository> repository;
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

    QByteArray content(const QString &name) const
    {
        QFile target(local->filePath(name));
        return target.open(QIODevice::ReadOnly) ? target.readAll() : QByteArray("<none>");
    }

    bool finished() const
    {
        return TestDevice::waitUntil([this] { return !repository->hasPendingRequests(); });
    }

private Q_SLOTS:
    void init()
    {
        local = std::make_unique<QTemporaryDir>();
        server = std::make_unique<StoreServer>();
        repository = std::make_unique<DistantRepository>(server->url());
        repository->setInactivityLimit(400ms);
        signalled.clear();
        connect(repository.get(), &RepositoryManager::repositoryManagerReady, this,
                [this] { signalled << "ready"; });
        connect(repository.get(), &RepositoryManager::repositoryAllOperationsDone, this,
                [this] { signalled << "all"; });
        connect(repository.get(), &RepositoryManager::repositoryOperationDone, this,
                [this] { signalled << "one"; });
    }

    void oneAtATimeInOrder()
    {
        for (const char *name : {"a", "b", "c"}) {
            QVERIFY(repository->sendFileToRepository(file(name, name)));
        }
        QVERIFY(repository->getFileFromRepository("b", local->filePath("back")));
        QVERIFY(repository->removeFileFromRepository("a"));
        QVERIFY(finished());
        QCOMPARE(server->requests, QStringList({"PUT a", "PUT b", "PUT c", "GET b", "DELETE a"}));
        QCOMPARE(server->entries.keys(), QStringList({"b", "c"}));
        QCOMPARE(content("back"), "b");
        QCOMPARE(signalled.count("one"), 3);
        QCOMPARE(signalled.count("ready"), 5);
        QCOMPARE(signalled.count("all"), 1);
        QVERIFY(!server->overlapped);
        QCOMPARE(server->connections, 1);
        QCOMPARE(repository->getErrorStatus(), RequestSucceeded);

        signalled.clear();
        repository->sendFileToRepository(file("d"));
        QVERIFY(finished());
        QCOMPARE(signalled.last(), "one");
        QCOMPARE(signalled.indexOf("all"), signalled.size() - 3);
    }

    void failures_data()
    {
        QTest::addColumn<int>("behaviour");
        QTest::addColumn<int>("status");
        for (const int status : {301, 302, 403, 404, 500, 507}) {
            QTest::addRow("status %d", status) << int(StoreServer::Fail) << status;
        }
        QTest::newRow("never answers") << int(StoreServer::Silent) << 0;
        QTest::newRow("closes at once") << int(StoreServer::Close) << 0;
        QTest::newRow("hangs in the body") << int(StoreServer::Hangs) << 0;
        QTest::newRow("cuts the body") << int(StoreServer::CutBody) << 0;
    }
    void failures()
    {
        QFETCH(int, behaviour);
        QFETCH(int, status);
        server->failStatus = status;
        server->behaviour = [&](int, const QString &, const QString &entry) {
            return entry == "bad" ? StoreServer::Behaviour(behaviour) : StoreServer::Proper;
        };
        server->entries.insert("bad", "entry");
        server->entries.insert("good", "entry");
        QElapsedTimer timer;
        timer.start();
        repository->getFileFromRepository("bad", local->filePath("bad-back"));
        repository->getFileFromRepository("good", local->filePath("good-back"));
        QVERIFY(finished());
        QCOMPARE(content("bad-back"), "<none>");
        QCOMPARE(content("good-back"), "entry");
        QVERIFY(!repository->getErrorString().isEmpty());
        QCOMPARE(repository->getErrorStatus(), RequestFailed);
        QCOMPARE(QDir(local->path()).entryList(QDir::Files | QDir::Hidden), QStringList{"good-back"});

        if (behaviour != StoreServer::Hangs && behaviour != StoreServer::CutBody) {
            repository->sendFileToRepository(file("bad"));
            repository->sendFileToRepository(file("good"));
            QVERIFY(finished());
            QCOMPARE(repository->getErrorStatus(), RequestFailed);
            QCOMPARE(signalled.count("one"), 2);
            QCOMPARE(server->entries.value("good"), "content");
        }
        repository->removeFileFromRepository("bad");
        repository->removeFileFromRepository("good");
        QVERIFY(finished());
        QVERIFY(!server->entries.contains("good"));
        QVERIFY(timer.elapsed() < 8000);
    }

    void checks_data()
    {
        QTest::addColumn<int>("behaviour");
        QTest::addColumn<int>("status");
        QTest::addColumn<bool>("reached");
        QTest::newRow("proper") << int(StoreServer::Proper) << 0 << true;
        QTest::newRow("moved") << int(StoreServer::Fail) << 301 << false;
        QTest::newRow("forbidden") << int(StoreServer::Fail) << 403 << false;
        QTest::newRow("never answers") << int(StoreServer::Silent) << 0 << false;
        QTest::newRow("closes") << int(StoreServer::Close) << 0 << false;
    }
    void checks()
    {
        QFETCH(int, behaviour);
        QFETCH(int, status);
        QFETCH(bool, reached);
        server->failStatus = status;
        server->behaviour = [&](int, const QString &, const QString &entry) {
            return entry.isEmpty() ? StoreServer::Behaviour(behaviour) : StoreServer::Proper;
        };
        repository->sendFileToRepository(file("a")); // is let finish first
        QCOMPARE(repository->checkRepository(), reached);
        QCOMPARE(server->requests.first(), "PUT a");
        QCOMPARE(repository->getErrorString().isEmpty(), reached);
        repository->sendFileToRepository(file("b"));
        QVERIFY(finished());
        QCOMPARE(server->entries.keys(), QStringList({"a", "b"}));
    }

    void serverThatIsGone()
    {
        server->stop();
        server.reset();
        QVERIFY(!repository->checkRepository());
        QVERIFY2(repository->getErrorString().endsWith(" - 1"), qPrintable(repository->getErrorString()));
        repository->sendFileToRepository(file("a"));
        QVERIFY(finished());
        QCOMPARE(repository->getErrorStatus(), RequestFailed);
    }

    void localFilesThatCannotBeUsed()
    {
        for (int number = 0; number < 20000; ++number) {
            repository->sendFileToRepository(local->filePath("missing"));
        }
        QCOMPARE(repository->getErrorStatus(), RequestSucceeded);
        QCOMPARE(signalled.count("one"), 0);
        repository->sendFileToRepository(local->path()); // a directory
        QCOMPARE(repository->getErrorStatus(), RequestFailed);
        QCOMPARE(signalled.count("one"), 1);
        repository->getFileFromRepository("x", "/no/such/directory/x");
        QCOMPARE(repository->getErrorStatus(), RequestFailed);
        QVERIFY(server->requests.isEmpty());
        repository->sendFileToRepository(file("a"));
        QVERIFY(finished());
        QCOMPARE(server->requests, QStringList{"PUT a"});
    }

    void targetStaysUntilTheReplyFailed()
    {
        file("kept", "old");
        server->entries.insert("kept", "new");
        server->behaviour = [](int number, const QString &, const QString &) {
            return number == 1 ? StoreServer::Silent : StoreServer::Proper;
        };
        repository->getFileFromRepository("kept", local->filePath("kept"));
        QTest::qWait(100);
        QCOMPARE(content("kept"), "old");
        QVERIFY(finished());
        QCOMPARE(content("kept"), "<none>");
        repository->getFileFromRepository("kept", local->filePath("kept"));
        QVERIFY(finished());
        QCOMPARE(content("kept"), "new");
    }

    void anotherServer()
    {
        StoreServer other;
        server->behaviour = [](int, const QString &, const QString &) { return StoreServer::Silent; };
        repository->sendFileToRepository(file("a"));
        repository->sendFileToRepository(file("b"));
        repository->setRepositoryUrl(other.url());
        repository->removeFileFromRepository("c");
        QVERIFY(finished());
        QCOMPARE(server->requests, QStringList{"PUT a"});
        QCOMPARE(other.requests, QStringList{"DELETE c"});
    }

    void abandoned()
    {
        server->behaviour = [](int, const QString &, const QString &) { return StoreServer::Silent; };
        repository->sendFileToRepository(file("a"));
        repository->sendFileToRepository(file("b"));
        QVERIFY(TestDevice::waitUntil([&] { return server->requests.size() == 1; }));
        signalled.clear();
        repository->abandon();
        QTest::qWait(600);
        QCOMPARE(signalled, QStringList());
        QCOMPARE(server->requests.size(), 1);
        QVERIFY(!repository->hasPendingRequests());
    }

    void userInformation()
    {
        QString url = server->url();
        repository->setRepositoryUrl(url.replace("http://", "http://user:p%40ss@"));
        repository->getFileFromRepository("missing", local->filePath("x"));
        QVERIFY(finished());
        QVERIFY(
            server->rawHeads.last().contains("Authorization: Basic " + QByteArray("user:p@ss").toBase64()));
        QVERIFY(!repository->getErrorString().contains("p@ss"));
        QCOMPARE(RepositoryUrl::forDisplay(url), server->url());
    }

    void urls()
    {
        const auto path = [](const QString &base, const QString &name) {
            return RepositoryUrl::entry(base, name).toEncoded(QUrl::RemoveScheme | QUrl::RemoveAuthority);
        };
        QCOMPARE(path("http://h/save", "a++b.tar.gz"), "/save/a++b.tar.gz");
        QCOMPARE(path("http://h/save/", "a"), "/save/a");
        QCOMPARE(path("http://h/s", "a#?%41 ü[1]\"\\"), "/s/a%23%3F%2541%20%C3%BC%5B1%5D%22%5C");
        for (const char *url : {"http://h/save?x=1", "http://h/save#x", "/data/httpdump", "http://", ""}) {
            repository->setRepositoryUrl(url);
            QVERIFY2(!repository->checkRepository(), url);
            QVERIFY(repository->getErrorString().startsWith("The repository's URL"));
        }
    }
};

QTEST_GUILESS_MAIN(tst_distant)
#include "tst_distant.moc"
