#include "repository/DistantRepository.h"
#include "repository/RepositoryUrl.h"
#include "tests/support/DataTable.h"
#include "tests/support/RepositoryTest.h"
#include "tests/support/StoreServer.h"

#include <QElapsedTimer>

using namespace std::chrono_literals;

/// The client of a server, against servers that do what they should not.
class tst_distant : public RepositoryTest
{
    Q_OBJECT

    std::unique_ptr<StoreServer> server;
    std::unique_ptr<DistantRepository> repository;

private Q_SLOTS:
    void init()
    {
        server = std::make_unique<StoreServer>();
        repository = std::make_unique<DistantRepository>(server->url());
        repository->setInactivityLimit(400ms);
        watch(*repository);
        startAfresh();
    }

    void oneAtATimeInOrder()
    {
        for (const char *name : {"a", "b", "c"}) {
            QVERIFY(repository->sendFileToRepository(file(name, name)));
        }
        QVERIFY(repository->getFileFromRepository("b", local->filePath("back")));
        QVERIFY(repository->removeFileFromRepository("a"));
        QVERIFY(finished(*repository));
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
        QVERIFY(repository->sendFileToRepository(file("d")) && finished(*repository));
        QCOMPARE(signalled.last(), "one");
        QCOMPARE(signalled.indexOf("all"), signalled.size() - 3);
    }

    void failures_data()
    {
        columns<int, int>("behaviour", "status");
        for (const int status : {301, 302, 403, 404, 500, 507}) {
            QTest::addRow("status %d", status) << int(StoreServer::Fail) << status;
        }
        row("never answers", int(StoreServer::Silent), 0);
        row("closes at once", int(StoreServer::Close), 0);
        row("hangs in the body", int(StoreServer::Hangs), 0);
        row("cuts the body", int(StoreServer::CutBody), 0);
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
        QVERIFY(repository->getFileFromRepository("good", local->filePath("good-back")) &&
                finished(*repository));
        QCOMPARE(content("bad-back"), "<none>");
        QCOMPARE(content("good-back"), "entry");
        QVERIFY(!repository->getErrorString().isEmpty());
        QCOMPARE(repository->getErrorStatus(), RequestFailed);
        QCOMPARE(QDir(local->path()).entryList(QDir::Files | QDir::Hidden), QStringList{"good-back"});

        if (behaviour != StoreServer::Hangs && behaviour != StoreServer::CutBody) {
            repository->sendFileToRepository(file("bad"));
            repository->sendFileToRepository(file("good"));
            QVERIFY(finished(*repository));
            QCOMPARE(repository->getErrorStatus(), RequestFailed);
            QCOMPARE(signalled.count("one"), 2);
            QCOMPARE(server->entries.value("good"), "content");
        }
        repository->removeFileFromRepository("bad");
        QVERIFY(repository->removeFileFromRepository("good") && finished(*repository));
        QVERIFY(!server->entries.contains("good"));
        QVERIFY(timer.elapsed() < 8000);
    }

    void checks_data()
    {
        columns<int, int, bool>("behaviour", "status", "reached");
        row("proper", int(StoreServer::Proper), 0, true);
        row("moved", int(StoreServer::Fail), 301, false);
        row("forbidden", int(StoreServer::Fail), 403, false);
        row("never answers", int(StoreServer::Silent), 0, false);
        row("closes", int(StoreServer::Close), 0, false);
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
        QVERIFY(repository->sendFileToRepository(file("b")) && finished(*repository));
        QCOMPARE(server->entries.keys(), QStringList({"a", "b"}));
    }

    void serverThatIsGone()
    {
        server->stop();
        server.reset();
        QVERIFY(!repository->checkRepository());
        QVERIFY2(repository->getErrorString().endsWith(" - 1"), qPrintable(repository->getErrorString()));
        QVERIFY(repository->sendFileToRepository(file("a")) && finished(*repository));
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
        QVERIFY(repository->sendFileToRepository(file("a")) && finished(*repository));
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
        QVERIFY(finished(*repository));
        QCOMPARE(content("kept"), "<none>");
        QVERIFY(repository->getFileFromRepository("kept", local->filePath("kept")) && finished(*repository));
        QCOMPARE(content("kept"), "new");
    }

    void anotherServer()
    {
        StoreServer other;
        server->behaviour = [](int, const QString &, const QString &) { return StoreServer::Silent; };
        repository->sendFileToRepository(file("a"));
        repository->sendFileToRepository(file("b"));
        repository->setRepositoryUrl(other.url());
        QVERIFY(repository->removeFileFromRepository("c") && finished(*repository));
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
        QVERIFY(finished(*repository));
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
