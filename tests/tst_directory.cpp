#include "repository/LocalRepository.h"
#include "tests/support/RepositoryTest.h"

#include <csignal>
#include <sys/resource.h>

/// What is a directory's own among the kinds of repositories.
class tst_directory : public RepositoryTest
{
    Q_OBJECT

    const QByteArray big = QByteArray(30000000, 'b');
    std::unique_ptr<QTemporaryDir> place;

private Q_SLOTS:
    void init()
    {
        place = std::make_unique<QTemporaryDir>();
        startAfresh();
    }

    void directoryThatIsNone()
    {
        const QString before = QDir::currentPath();
        QDir::setCurrent(place->path());
        for (const QString &directory : {QString(), QString("/no such directory"), file("a"), QString(".")}) {
            LocalRepository nowhere(directory);
            for (const Method method : {Method::Check, Method::Put, Method::Get, Method::Remove}) {
                QCOMPARE(ask(nowhere, method, "a", local->filePath("a")), "kept");
                QVERIFY(!reason.isEmpty());
            }
        }
        QDir::setCurrent(before);
        QVERIFY(QDir(place->path()).isEmpty());
        QCOMPARE(LocalRepository(place->path() + "/").getRepositoryUrl(), place->path());
    }

    void whatIsInTheWay()
    {
        struct Case
        {
            QString make, entry;
            QStringList expected; // of put, get, remove
        };
        const QString incoming = ".saverestore-incoming.1";
        const QList<Case> cases = {
            {"mkdir -p x/y", "x", {"kept", "kept", "kept"}},
            {"mkfifo x", "x", {"stored", "kept", "stored"}},
            {"ln -s none x", "x", {"stored", "kept", "stored"}},
            {"ln -s /etc/hostname x", "x", {"stored", "kept", "stored"}},
            {"true", QString(256, 'n'), {"kept", "absent", "stored"}},
            {"true", incoming, {"kept", "kept", "kept"}},
            {"mkdir " + incoming, "x", {"stored", "absent", "stored"}},
            {"mkfifo " + incoming, "x", {"stored", "absent", "stored"}},
            {"echo > " + incoming + "; chmod 400 " + incoming, "x", {"stored", "absent", "stored"}}};
        for (const auto &[make, entry, expected] : cases) {
            QStringList found;
            for (const Method method : {Method::Put, Method::Get, Method::Remove}) {
                const QTemporaryDir directory;
                TestDevice::shell("cd " + directory.path() + " && " + make);
                LocalRepository repository(directory.path());
                found << ask(repository, method, entry, file("a"));
                const QFileInfo info(directory.filePath(entry));
                const bool isThere = info.isFile() && !info.isSymLink();
                QVERIFY(method != Method::Put || isThere == (found.first() == "stored"));
                QVERIFY(!isThere || readFile(directory.filePath(entry)) == "content");
            }
            QCOMPARE(found, expected);
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
        submit(repository, Method::Put, "b", local->filePath("a"));
        const QString put = ask(repository, Method::Put, "a", local->filePath("big"));
        const QString fetched = ask(repository, Method::Get, "big", local->filePath("back"));
        setrlimit(RLIMIT_FSIZE, &before);
        QCOMPARE(put + " " + fetched, "kept kept");
        QCOMPARE(readFile(place->filePath("a")) + readFile(place->filePath("b")) + content("back"),
                 "oldoldold");
        QCOMPARE(QDir(place->path()).entryList(QDir::Files | QDir::Hidden), QStringList({"a", "b", "big"}));
        QCOMPARE(localFiles(), QStringList({"a", "back", "big"}));
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

QTEST_GUILESS_MAIN(tst_directory)
#include "tst_directory.moc"
