#include "platform/core/Waiter.h"
#include "repository/DistantRepository.h"
#include "repository/LocalRepository.h"
#include "tests/support/DataTable.h"
#include "tests/support/NginxServer.h"
#include "tests/support/RepositoryTest.h"

#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>

/// What every kind of repository has to do, and what is the directory's own.
class tst_repository : public RepositoryTest
{
    Q_OBJECT

    const QTemporaryDir root;
    const QByteArray big = QByteArray(30000000, 'b');
    std::unique_ptr<QTemporaryDir> place;
    std::unique_ptr<NginxServer> http;
    std::unique_ptr<NginxServer> https;
    std::shared_ptr<Repository> any;

    static bool isDirectory()
    {
        QFETCH_GLOBAL(QString, kind);
        return kind == "directory";
    }
    static bool isSecure()
    {
        QFETCH_GLOBAL(QString, kind);
        return kind == "HTTPS";
    }
    const NginxServer &server() const { return isSecure() ? *https : *http; }
    QDir store() const { return QDir(isDirectory() ? place->path() : server().store()); }
    QStringList entries() const
    {
        return store().entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    }
    QByteArray stored(const QString &entry) const { return readFile(store().filePath(entry), "<none>"); }

    std::shared_ptr<Repository> makeAny() const
    {
        if (isDirectory()) {
            return std::make_shared<LocalRepository>(place->path());
        }
        return std::make_shared<DistantRepository>(server().url());
    }

private Q_SLOTS:
    void initTestCase_data()
    {
        columns<QString>("kind");
        for (const char *kind : {"directory", "HTTP", "HTTPS"}) {
            row(kind, kind);
        }
    }

    void initTestCase()
    {
        qputenv("VYX_DEVICE_ROOT", root.path().toUtf8());
        NginxServer::installTool(root.path());
        http = std::make_unique<NginxServer>();
        https = std::make_unique<NginxServer>("server");
        QVERIFY(http->isRunning() && https->isRunning());
    }

    void init()
    {
        place = std::make_unique<QTemporaryDir>();
        store().removeRecursively();
        QDir().mkpath(store().path());
        any = makeAny();
        Waiter waiter;
        any->setUp(waiter);
        startAfresh();
    }

    void names_data()
    {
        columns<QString>("entry");
        row("plain", "mod++a.tar.gz");
        row("dash", "-rf");
        row("dots", "...");
        row("odd", "My Pictures++it's [1] ü 日本 \"x\" $HOME %41 #1?.jpg");
        row("long", QString(255, 'n'));
    }
    void names()
    {
        QFETCH(QString, entry);
        QCOMPARE(ask(*any, Method::Put, entry, file("a")), "stored");
        QCOMPARE(entries(), QStringList{entry});
        QCOMPARE(ask(*any, Method::Put, entry, file("a", "longer content")), "stored");
        QCOMPARE(ask(*any, Method::Get, entry, file("back", "another content")), "stored");
        QCOMPARE(content("back"), "longer content");
        QCOMPARE(ask(*any, Method::Remove, entry), "stored");
        QCOMPARE(entries(), QStringList());
    }

    void contents()
    {
        for (const int size : {0, 1, 30000000}) {
            QByteArray bytes(size, 'x');
            for (qsizetype index = 0; index < bytes.size(); index += 4099) {
                bytes[index] = static_cast<char>(index);
            }
            QCOMPARE(ask(*any, Method::Check, {}), "stored");
            submit(*any, Method::Put, "a", file("a", bytes));
            QCOMPARE(ask(*any, Method::Get, "a", local->filePath("back")), "stored");
            QVERIFY2(content("back") == bytes, qPrintable(QString("%1 bytes").arg(size)));
        }
    }

    void whatCannotBeDone_data()
    {
        columns<int, QString, QString, QString>("method", "entry", "path", "outcome");
        row("fetch of what is missing", int(Method::Get), "missing", "back", "absent");
        row("removal of what is missing", int(Method::Remove), "missing", "", "stored");
        row("no source", int(Method::Put), "there", "none", "kept");
        row("directory as source", int(Method::Put), "there", "directory", "kept");
        row("fifo as source", int(Method::Put), "there", "fifo", "kept");
        row("no place for a target", int(Method::Get), "there", "none/back", "kept");
        row("directory as target", int(Method::Get), "there", "directory", "kept");
        for (const char *name : {"", ".", "..", "/", "a/there", "/there"}) {
            for (const Method method : {Method::Put, Method::Get, Method::Remove}) {
                QTest::addRow("%s %d", name, method) << int(method) << name << "back"
                                                     << "kept";
            }
        }
    }
    void whatCannotBeDone()
    {
        QFETCH(int, method);
        QFETCH(QString, entry);
        QFETCH(QString, path);
        QFETCH(QString, outcome);
        QCOMPARE(ask(*any, Method::Put, "there", file("a")), "stored");
        file("back", "old");
        QDir(local->path()).mkdir("directory");
        mkfifo(qPrintable(local->filePath("fifo")), 0600);
        submit(*any, Method(method), entry, local->filePath(path));
        QCOMPARE(ask(*any, Method::Put, "after", local->filePath("a")), "stored");
        QCOMPARE(outcomes.at(1), outcome + " " + entry);
        QCOMPARE(content("back"), "old");
        QCOMPARE(entries(), QStringList({"after", "there"}));
        QCOMPARE(stored("there"), "content");
    }

    void sourceWithinADirectory()
    {
        file("outside");
        QVERIFY(QDir(local->path()).mkdir("data"));
        QVERIFY(QFile::link("../outside", local->filePath("data/stolen")) &&
                QFile::rename(file("f"), local->filePath("data/f")));
        for (const char *source : {"f", "stolen", "../outside"}) {
            const QString path = local->filePath("data/") + source;
            any->submit({Method::Put, "e", path, local->filePath("data")}, noted(source));
        }
        QVERIFY(finished(*any));
        QCOMPARE(outcomes, QStringList({"stored f", "kept stolen", "kept ../outside"}));
    }

    void eachHasOneOutcomeInOrder()
    {
        QStringList expected;
        for (int number = 0; number < 60; ++number) {
            const QString name = QString("f%1").arg(number);
            submit(*any, Method::Put, name, file(name, name.toUtf8()));
            submit(*any, Method::Get, name, local->filePath("back-" + name));
            submit(*any, Method::Remove, number % 2 == 0 ? name : "a/b");
            submit(*any, Method::Get, name, local->filePath("again"));
            expected << "stored " + name << "stored " + name
                     << (number % 2 == 0 ? "stored " + name : "kept a/b")
                     << (number % 2 == 0 ? "absent " : "stored ") + name;
        }
        any->submit({Method::Check, {}, {}}, {});
        any->submit({Method::Check, {}, {}},
                    [this](const RequestOutcome &) { submit(*any, Method::Check, "next"); });
        QVERIFY(finished(*any));
        QCOMPARE(outcomes, expected << "stored next");
        QCOMPARE(entries().size(), 30);
        QCOMPARE(content("back-f59"), "f59");
    }

    void cancelled_data()
    {
        columns<int>("method");
        row("put", int(Method::Put));
        row("get", int(Method::Get));
    }
    void cancelled()
    {
        QFETCH(int, method);
        const bool puts = method == Method::Put;
        QCOMPARE(ask(*any, Method::Put, "entry", file("first", puts ? "old" : big)), "stored");
        const QStringList before = {"back", "first"};
        file("back", puts ? big : "old");
        submit(*any, Method(method), "entry", local->filePath("back"));
        submit(*any, Method::Get, "entry", local->filePath("first"));
        submit(*any, Method::Remove, "entry");
        outcomes.clear();
        QVERIFY(underWay(*any));
        any->cancelRequests("why");
        const QStringList expected = {isDirectory() ? "kept entry" : "failed entry", "kept entry",
                                      "kept entry"};
        QCOMPARE(outcomes, expected);
        QCOMPARE(reason, "why");
        QVERIFY(!any->hasPendingRequests());
        QTest::qWait(300);
        QCOMPARE(outcomes, expected);
        QVERIFY(content("back") == (puts ? big : "old"));
        QVERIFY(stored("entry") == (puts ? "old" : big));
        QCOMPARE(entries(), QStringList{"entry"});
        QCOMPARE(QDir(local->path()).entryList(QDir::Files | QDir::Hidden), before);
        QCOMPARE(ask(*any, Method(method), "entry", local->filePath("back")), "stored");
    }

    void destroyed()
    {
        submit(*any, Method::Put, "a", file("a", big));
        submit(*any, Method::Get, "b", local->filePath("back"));
        QVERIFY(underWay(*any));
        Repository *const last = any.get();
        any->submit({Method::Remove, "c", {}}, [=, this](const RequestOutcome &) {
            last->submit({Method::Remove, "d", {}},
                         [=, this](const RequestOutcome &) { submit(*last, Method::Remove, "e"); });
        });
        any.reset();
        QCOMPARE(outcomes, QStringList({isDirectory() ? "kept a" : "failed a", "kept b"}));
        QCOMPARE(reason, "The repository is no longer in use");
        QTest::qWait(1);
        QCOMPARE(outcomes.mid(2), QStringList({"kept e"}));
    }

    void droppedByWhoIsTold()
    {
        for (const Method method : {Method::Check, Method::Put, Method::Get, Method::Remove}) {
            for (const char *entry : {"a", "a/b"}) {
                outcomes.clear();
                any = makeAny();
                any->submit({method, entry, file("a")}, [this](const RequestOutcome &) { any.reset(); });
                submit(*any, Method::Check, "next");
                QVERIFY(TestDevice::waitUntil([this] { return !any; }));
                QTest::qWait(20);
                QCOMPARE(outcomes, QStringList{"kept next"});
            }
        }
    }

    void directoryThatIsNone()
    {
        const QString before = QDir::currentPath();
        QDir::setCurrent(place->path());
        const QStringList places = {"", "/no such directory", file("a"), ".", place->path()};
        for (const QString &directory : places) {
            LocalRepository nowhere(directory);
            QCOMPARE(nowhere.getRepositoryUrl(), directory == "." ? place->path() : directory);
            for (const Method method : {Method::Check, Method::Put, Method::Get, Method::Remove}) {
                QCOMPARE(ask(nowhere, method, "a", local->filePath("a")), "kept");
                QVERIFY(!reason.isEmpty());
            }
        }
        QDir::setCurrent(before);
        QVERIFY(QDir(place->path()).isEmpty());
        LocalRepository there(place->path() + "/");
        QCOMPARE(there.getRepositoryUrl(), place->path());
        QCOMPARE(ask(there, Method::Check, {}), "stored");
    }

    void whatIsInTheWay_data()
    {
        columns<QString, QString, QStringList>("what", "entry", "expected"); // of put, get, remove
        row("directory", "mkdir -p x/y", "x", QStringList({"kept", "kept", "kept"}));
        row("fifo", "mkfifo x", "x", QStringList({"stored", "kept", "stored"}));
        row("link to nowhere", "ln -s none x", "x", QStringList({"stored", "kept", "stored"}));
        row("too long name", "", QString(256, 'n'), QStringList({"kept", "absent", "stored"}));
        row("name of the file beside", "", ".saverestore-incoming", QStringList({"kept", "kept", "kept"}));
        row("directory beside", "mkdir .saverestore-incoming", "x",
            QStringList({"kept", "absent", "stored"}));
        row("fifo beside", "mkfifo .saverestore-incoming", "x", QStringList({"stored", "absent", "stored"}));
        row("read-only file beside", "echo >.saverestore-incoming; chmod 400 .saverestore-incoming", "x",
            QStringList({"stored", "absent", "stored"}));
    }
    void whatIsInTheWay()
    {
        QFETCH(QString, what);
        QFETCH(QString, entry);
        QFETCH(QStringList, expected);
        const Method methods[] = {Method::Put, Method::Get, Method::Remove};
        for (int index = 0; index < 3; ++index) {
            const QTemporaryDir directory;
            TestDevice::shell("cd " + directory.path() + " && " + what);
            LocalRepository repository(directory.path());
            QCOMPARE(ask(repository, methods[index], entry, file("a")), expected.at(index));
            const auto files = QDir(directory.path()).entryList(QDir::Files | QDir::Hidden | QDir::System);
            const QStringList left =
                outcomes.last() == "stored " + entry ? QStringList{entry} : QStringList();
            QVERIFY(index > 0 || files == left);
            QVERIFY(index > 0 || left.isEmpty() || readFile(directory.filePath(entry)) == "content");
        }
    }

    void diskThatIsFull()
    {
        LocalRepository repository(place->path());
        QCOMPARE(ask(repository, Method::Put, "a", file("a", "old")), "stored");
        writeFile(place->filePath("big"), big);
        file("big", big);
        file("back", "old");
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit before = {};
        getrlimit(RLIMIT_FSIZE, &before);
        const rlimit small = {5000000, before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &small);
        const QString put = ask(repository, Method::Put, "a", local->filePath("big"));
        const QString fetched = ask(repository, Method::Get, "big", local->filePath("back"));
        setrlimit(RLIMIT_FSIZE, &before);
        QCOMPARE(put + " " + fetched, "kept kept");
        QCOMPARE(readFile(place->filePath("a")) + content("back"), "oldold");
        QCOMPARE(QDir(place->path()).entryList(QDir::Files | QDir::Hidden), QStringList({"a", "big"}));
        QCOMPARE(QDir(local->path()).entryList(QDir::Files | QDir::Hidden),
                 QStringList({"a", "back", "big"}));
    }

    void permissionsGoWithTheContent()
    {
        const auto mode = [](const QString &path) { return QFile::permissions(path) & 0x777; };
        LocalRepository repository(place->path());
        QFile::setPermissions(file("a"), QFile::Permissions(0x500));
        QCOMPARE(ask(repository, Method::Put, "a", local->filePath("a")), "stored");
        QCOMPARE(ask(repository, Method::Put, "a", local->filePath("a")), "stored");
        QCOMPARE(ask(repository, Method::Get, "a", file("back")), "stored");
        QCOMPARE(mode(place->filePath("a")), mode(local->filePath("a")));
        QCOMPARE(mode(local->filePath("back")), mode(local->filePath("a")));
    }
};

QTEST_GUILESS_MAIN(tst_repository)
#include "tst_repository.moc"
