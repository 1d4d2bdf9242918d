#include "outcome/OperationReport.h"
#include "pause/PauseKeeper.h"
#include "platform/core/Waiter.h"
#include "repository/DistantRepository.h"
#include "repository/LocalRepository.h"
#include "repository/RepositorySession.h"
#include "repository/RepositoryUrl.h"
#include "restorable/KnownModules.h"
#include "staging/OperationContext.h"
#include "tests/support/DataTable.h"
#include "tests/support/NginxServer.h"
#include "tests/support/RepositoryTest.h"
#include "tests/support/StoreServer.h"
#include "tests/support/TestMiddleware.h"

#include <QElapsedTimer>
#include <QTimer>

#include <fcntl.h>
#include <sys/socket.h>

using namespace std::chrono_literals;

/// The client of a server, against servers that do what they should not, and the session of an operation.
class tst_distant : public RepositoryTest
{
    Q_OBJECT

    const QTemporaryDir root;
    std::unique_ptr<StoreServer> server;
    std::shared_ptr<DistantRepository> repository;

    void use(const QString &url)
    {
        repository = std::make_shared<DistantRepository>(url);
        repository->setInactivityLimit(400ms);
    }

private Q_SLOTS:
    void initTestCase()
    {
        qputenv("VYX_DEVICE_ROOT", root.path().toUtf8());
        startAfresh();
    }

    void init()
    {
        server = std::make_unique<StoreServer>();
        use(server->url());
        startAfresh();
    }

    void failures_data()
    {
        columns<int, int, QStringList>("behaviour", "status", "expected"); // of check, put, get, remove
        const QStringList failed = {"failed", "failed", "failed", "failed"};
        const QStringList kept = {"kept", "kept", "kept", "kept"};
        const QStringList gone = {"failed", "kept", "kept", "kept"};
        for (const int status : {301, 302, 500, 502, 504}) {
            QTest::addRow("status %d", status) << int(StoreServer::Fail) << status << failed;
        }
        for (const int status : {400, 403, 413, 503, 507}) {
            QTest::addRow("status %d", status) << int(StoreServer::Fail) << status << kept;
        }
        row("status 404", int(StoreServer::Fail), 404, QStringList({"kept", "kept", "absent", "stored"}));
        row("status 202", int(StoreServer::Fail), 202, QStringList({"stored", "failed", "failed", "stored"}));
        row("never answers", int(StoreServer::Silent), 0, gone);
        row("closes at once", int(StoreServer::Close), 0, gone);
        row("hangs in the body", int(StoreServer::Hangs), 0, gone);
        row("cuts the body", int(StoreServer::CutBody), 0, failed);
    }
    void failures()
    {
        QFETCH(int, behaviour);
        QFETCH(int, status);
        QFETCH(QStringList, expected);
        server->failStatus = status;
        server->behaviour = [&](int, const QString &, const QString &) {
            return StoreServer::Behaviour(behaviour);
        };
        QElapsedTimer timer;
        timer.start();
        file("back", "old");
        submit(*repository, Method::Check, "bad");
        submit(*repository, Method::Put, "bad", file("a"));
        submit(*repository, Method::Get, "bad", local->filePath("back"));
        submit(*repository, Method::Remove, "bad");
        QVERIFY(finished(*repository));
        QCOMPARE(outcomes.join(';'), expected.join(" bad;") + " bad");
        QCOMPARE(content("back"), "old");
        QCOMPARE(localFiles(), QStringList({"a", "back"}));
        server->behaviour = {};
        QCOMPARE(ask(*repository, Method::Check, ""), "stored");
        QCOMPARE(ask(*repository, Method::Put, "good", local->filePath("a")), "stored");
        QCOMPARE(ask(*repository, Method::Get, "good", local->filePath("back")), "stored");
        QCOMPARE(content("back"), "content");
        QVERIFY(timer.elapsed() < 8000);
    }

    void cancelledAtAnyMoment()
    {
        for (const Method method : {Method::Check, Method::Put, Method::Get, Method::Remove}) {
            QString first;
            for (int turns = 0; first != "stored a"; ++turns) {
                QVERIFY(turns < 500);
                startAfresh();
                server->entries = {{"a", "entry"}};
                submit(*repository, method, "a", file("a", "old"));
                for (int turn = 0; turn < turns && repository->hasPendingRequests(); ++turn) {
                    QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
                }
                repository->cancelRequests("why");
                QCOMPARE(ask(*repository, Method::Get, "none", local->filePath("a")), "absent");
                first = outcomes.takeFirst();
                QCOMPARE(outcomes, QStringList{"absent none"});
                QVERIFY2(QStringList({"kept a", "failed a", "stored a"}).contains(first), qPrintable(first));
                QCOMPARE(content("a"), method == Method::Get && first == "stored a" ? "entry" : "old");
            }
        }
    }

    void userInformation()
    {
        QString url = server->url();
        use(url.replace("http://", "http://user:p%40ss@"));
        server->behaviour = [](int, const QString &, const QString &) { return StoreServer::Fail; };
        QCOMPARE(ask(*repository, Method::Get, "missing", local->filePath("x")), "failed");
        QVERIFY(
            server->rawHeads.last().contains("Authorization: Basic " + QByteArray("user:p@ss").toBase64()));
        QVERIFY(!reason.contains("p@ss") && !reason.contains("p%40ss"));
        QCOMPARE(repository->getRepositoryUrl(), url);
    }

    void connectionsAreNotInherited()
    {
        QCOMPARE(ask(*repository, Method::Check, ""), "stored");
        int sockets = 0;
        for (const QString &number : QDir("/proc/self/fd").entryList(QDir::System | QDir::Files)) {
            sockaddr_storage name = {};
            socklen_t length = sizeof name;
            const int file = number.toInt();
            if (getsockname(file, reinterpret_cast<sockaddr *>(&name), &length) == 0 &&
                name.ss_family == AF_INET) {
                ++sockets;
                QVERIFY((fcntl(file, F_GETFD) & FD_CLOEXEC) != 0);
            }
        }
        QVERIFY(sockets >= 2);
    }

    void urls()
    {
        const auto path = [](const QString &base, const QString &name) {
            return RepositoryUrl::entry(base, name).toEncoded(QUrl::RemoveScheme | QUrl::RemoveAuthority);
        };
        QCOMPARE(path("http://h/save", "a++b.tar.gz"), "/save/a++b.tar.gz");
        QCOMPARE(path("http://h/save/", "a"), "/save/a");
        QCOMPARE(path("http://h/s", "a#?%41 ü[1]\"\\"), "/s/a%23%3F%2541%20%C3%BC%5B1%5D%22%5C");
        for (const char *url : {"http://h/save?x=1", "http://h/save#x", "http:", "http://", ""}) {
            use(url);
            QCOMPARE(ask(*repository, Method::Check, ""), "kept");
            QVERIFY2(reason.startsWith("The repository's URL"), url);
        }
    }

    void usable_data()
    {
        // the server's certificate or another place, what becomes of the device's tool, how the pop-up begins
        columns<bool, QString, QString, QString>("developer", "place", "change", "popup");
        const QString unsecured = "Unsecured URL: abort backup operations.";
        const QString failed = "Connection to repository failed.|";
        const QString refused = failed + "SSL certificate problem: ";
        const QString noTrust = failed + "The device's certificate, its key or its authorities";
        const QString none = "CTL is not deployed: abort backup operations.";
        const auto differs = [](const QString &usual, const QString &now) {
            return "sed -i 's/" + usual + "/" + now + "/' etc/VYXApplication/pki.conf";
        };
        row("developer's directory", true, "/tmp", differs("SECURED", "NONE"), "");
        row("directory", false, "/tmp", "", unsecured);
        row("no directory", true, "/no such directory", "", failed + "Local save directory not initialized!");
        row("developer's server", true, "HTTP", differs("SECURED", "NONE"), "");
        row("server", false, "HTTP", "", unsecured);
        row("no server", true, "http:", "", failed + "The repository's URL is not valid");
        row("secure server", false, "server", "", "");
        row("foreign server", false, "server-foreign", "", refused + "unable to get local issuer");
        row("expired server", false, "server-expired", "", refused + "certificate has expired");
        row("wrong name", false, "server-wrongname", "", failed + "SSL: no alternative certificate subject");
        row("revoked server", false, "server-revoked", differs("ca.pem", "ca-list.pem"),
            refused + "certificate revoked");
        row("server not revoked", false, "server", differs("ca.pem", "ca-list.pem"), "");
        row("old TLS", false, "server tls1.1", "", failed + "OpenSSL");
        row("no trust list", false, "server", differs("SECURED", "NONE"), none);
        row("no tool", false, "server", "rm usr/bin/getVYXinfo", none);
        row("tool fails", false, "server", "sed -i '2i exit 3' usr/bin/getVYXinfo", none);
        row("line feed", false, "server", "echo echo >> usr/bin/getVYXinfo", none);
        row("expired device", false, "server", differs("device.pem", "device-expired.pem"), noTrust);
        row("device of the future", false, "server", differs("device.pem", "device-future.pem"), noTrust);
        row("missing certificate", false, "server", differs("device.pem", "none.pem"), noTrust);
        row("key of another kind", false, "server", differs("device.key", "device-ec.key"), noTrust);
        row("key of another device", false, "server", differs("device.key", "foreign-ca.key"), noTrust);
        row("missing key", false, "server", differs("device.key", "none.key"), noTrust);
        row("one expired authority", false, "server", differs("ca.pem", "ca-mixed.pem"), noTrust);
    }
    void usable()
    {
        QFETCH(bool, developer);
        QFETCH(QString, place);
        QFETCH(QString, change);
        QFETCH(QString, popup);
        const bool secure = place.startsWith("server");
        const NginxServer nginx(secure ? place.section(' ', 0, 0) : QString(), place.section(' ', 1));
        NginxServer::installTool(root.path());
        TestDevice::shell("cd " + root.path() + " && " + change);
        writeFile(root.filePath("data/dev_mode"), {});
        use(secure ? nginx.url() : (place == "HTTP" ? server->url() : place));
        repository->ctlCheckEnabled = false; // as it is for one that is chosen in the developer mode
        std::shared_ptr<Repository> held = repository;
        if (place.startsWith('/')) {
            held = std::make_shared<LocalRepository>(place);
        }
        // The developer mode may end when the repository has been chosen.
        QVERIFY(developer || QFile::remove(root.filePath("data/dev_mode")));
        const auto isUsable = [&](bool ends, const QString &shown) {
            TestMiddleware middleware;
            Waiter waiter;
            if (ends) {
                waiter.end(Waiter::End::RepositoryChanged);
            }
            KnownModules modules(middleware);
            PauseKeeper pauses(middleware);
            OperationReport report(OperationReport::Operation::Save, 1);
            RepositorySession session(held, waiter);
            const bool usable =
                OperationContext{middleware, waiter, modules, pauses, report}.isUsable(session, "backup");
            const QString popups = middleware.popups.join(' ');
            if (shown.isEmpty() ? !popups.isEmpty() : !popups.startsWith(shown)) {
                QTest::qFail(qPrintable(popups), __FILE__, __LINE__);
            }
            return usable;
        };
        QVERIFY(!isUsable(true, ""));
        QCOMPARE(isUsable(false, popup), popup.isEmpty());
        // With everything in order, the next operation sets the connection up anew.
        NginxServer::installTool(root.path());
        const bool repaired = place == "server" || popup.isEmpty();
        QCOMPARE(isUsable(false, repaired ? "" : popup), repaired);
    }

    void session()
    {
        Waiter waiter;
        auto session = std::make_unique<RepositorySession>(repository, waiter);
        session->submit({Method::Put, "a/b", file("a")}, [&](const RequestOutcome &) {
            session->submit({Method::Put, "b", file("b")}, noted("b"));
        });
        session->waitForRequests();
        QCOMPARE(outcomes, QStringList{"stored b"});
        QCOMPARE(word(session->getFileAndWait("b", local->filePath("back"))), "stored");
        QCOMPARE(word(session->getFileAndWait("missing", local->filePath("back"))), "absent");
        QCOMPARE(content("back"), "content");

        server->behaviour = [&](int, const QString &, const QString &) { return StoreServer::Silent; };
        session->submit({Method::Put, "c", file("c")}, noted("c"));
        QTimer::singleShot(100, this, [&] { waiter.end(Waiter::End::ProcessEnds); });
        session->waitForRequests();
        QCOMPARE(word(session->getFileAndWait("b", local->filePath("back"))), "kept");
        session->submit({Method::Remove, "b", {}}, noted("b"));
        submit(*repository, Method::Check, "");
        session.reset();
        QVERIFY(!repository->hasPendingRequests());
        server->behaviour = {};
        QCOMPARE(ask(*repository, Method::Get, "none", local->filePath("back")), "absent");
        QVERIFY(!server->overlapped);
        QTest::qWait(400); // as long as the given-up request might have been inactive
        QCOMPARE(outcomes.mid(1), QStringList({"failed c", "kept ", "absent none"}));
        // A change gets a moment to end, in which the silent server is asked whether it is there.
        QCOMPARE(server->requests.mid(3), QStringList({"PUT c", "GET ", "GET none"}));
    }

    void setUpsOverlapAndEndEarly()
    {
        const NginxServer secure("server");
        NginxServer::installTool(root.path());
        use(secure.url());
        DistantRepository other(secure.url());
        Waiter waiter;
        Waiter otherWaiter;
        QTimer::singleShot(0, this, [&] { other.setUp(otherWaiter); });
        repository->setUp(waiter);
        QCOMPARE(ask(other, Method::Check, ""), "stored");
        QCOMPARE(ask(*repository, Method::Check, ""), "stored");

        const QByteArray configuration = readFile(root.filePath("etc/VYXApplication/pki.conf"));
        writeFile(root.filePath("etc/VYXApplication/pki.conf"), configuration + "DELAY=2\n");
        QElapsedTimer timer;
        timer.start();
        QTimer::singleShot(100, this, [&] { waiter.end(Waiter::End::RepositoryChanged); });
        repository->setUp(waiter);
        QVERIFY(timer.elapsed() < 1500);
        QCOMPARE(ask(*repository, Method::Check, ""), "kept");
    }
};

QTEST_GUILESS_MAIN(tst_distant)
#include "tst_distant.moc"
