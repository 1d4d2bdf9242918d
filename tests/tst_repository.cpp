#include "platform/core/Waiter.h"
#include "repository/DistantRepository.h"
#include "repository/LocalRepository.h"
#include "tests/support/DataTable.h"
#include "tests/support/NginxServer.h"
#include "tests/support/RepositoryTest.h"

#include <algorithm>
#include <map>
#include <sys/stat.h>

/// What every kind of repository has to do. When SAVERESTORE_SERVER is the base URL of a server, and
/// SAVERESTORE_PKI the directory of device.pem, device.key and ca.pem for it, that server alone is held to
/// it, and what it has stored is told by the protocol.
class tst_repository : public RepositoryTest
{
    Q_OBJECT

    const QTemporaryDir root;
    const QByteArray big = QByteArray(30000000, 'b');
    const QString named = qEnvironmentVariable("SAVERESTORE_SERVER");
    std::unique_ptr<QTemporaryDir> place;
    std::map<QString, std::unique_ptr<NginxServer>> servers;
    std::shared_ptr<Repository> any;
    std::unique_ptr<DistantRepository> witness; ///< another client of the server named

    static QString kind()
    {
        QFETCH_GLOBAL(QString, kind);
        return kind;
    }
    static bool isDirectory() { return kind() == "directory"; }
    const NginxServer &server() const { return *servers.at(kind()); }
    QDir store() const { return QDir(isDirectory() ? place->path() : server().store()); }
    QStringList entries() const
    {
        if (named.isEmpty()) {
            return store().entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
        }
        QStringList found = askedFor();
        found.removeIf([this](const QString &entry) { return stored(entry) == "<none>"; });
        return found;
    }
    QByteArray stored(const QString &entry) const
    {
        if (named.isEmpty()) {
            return readFile(store().filePath(entry), "<none>");
        }
        const QTemporaryDir other;
        const QString outcome = witnessed({Method::Get, entry, other.filePath("fetched")});
        return outcome == "absent" ? "<none>" : readFile(other.filePath("fetched"), outcome.toUtf8());
    }
    QString witnessed(const RepositoryRequest &request) const
    {
        QString ended;
        witness->submit(request, [&](const RequestOutcome &outcome) { ended = word(outcome); });
        if (!finished(*witness)) {
            witness->cancelRequests("no outcome in time");
        }
        return ended;
    }

    /// The entries of all requests of this test that have ended.
    QStringList askedFor() const
    {
        QStringList names;
        for (const QString &outcome : outcomes) {
            names << outcome.section(' ', 1);
        }
        names.sort();
        names.removeDuplicates();
        names.removeIf([](const QString &name) {
            return name.contains('/') || QStringList{"", ".", ".."}.contains(name);
        });
        return names;
    }

    std::shared_ptr<Repository> makeAny() const
    {
        if (isDirectory()) {
            return std::make_shared<LocalRepository>(place->path());
        }
        return std::make_shared<DistantRepository>(named.isEmpty() ? server().url() : named);
    }

    /// The order holds for the requests of one entry.
    static QStringList sortedByEntry(QStringList outcomes)
    {
        const auto entry = [](const QString &outcome) { return outcome.section(' ', 1); };
        std::stable_sort(outcomes.begin(), outcomes.end(),
                         [&](const QString &one, const QString &two) { return entry(one) < entry(two); });
        return outcomes;
    }

private Q_SLOTS:
    void initTestCase_data()
    {
        columns<QString>("kind");
        if (!named.isEmpty()) {
            row(qPrintable(named), named);
            return;
        }
        for (const char *name : {"directory", "HTTP", "HTTPS by HTTP/1.1", "HTTPS by HTTP/2"}) {
            row(name, QString(name));
        }
    }

    void initTestCase()
    {
        qputenv("VYX_DEVICE_ROOT", root.path().toUtf8());
        NginxServer::installTool(root.path(), qEnvironmentVariable("SAVERESTORE_PKI"));
        if (!named.isEmpty()) {
            Waiter waiter;
            witness = std::make_unique<DistantRepository>(named);
            witness->setUp(waiter);
            return;
        }
        servers["HTTP"] = std::make_unique<NginxServer>();
        servers["HTTPS by HTTP/1.1"] = std::make_unique<NginxServer>("server", "http1");
        servers["HTTPS by HTTP/2"] = std::make_unique<NginxServer>("server");
        QVERIFY(std::ranges::all_of(servers, [](const auto &one) { return one.second->isRunning(); }));
    }

    void init()
    {
        place = std::make_unique<QTemporaryDir>();
        if (named.isEmpty()) {
            store().removeRecursively();
            QDir().mkpath(store().path());
        }
        any = makeAny();
        Waiter waiter;
        any->setUp(waiter);
        startAfresh();
    }

    void cleanup()
    {
        any.reset();
        for (const QString &entry : named.isEmpty() ? QStringList() : askedFor()) {
            QCOMPARE(witnessed({Method::Remove, entry, {}}), "stored");
        }
    }

    void comesBack_data()
    {
        columns<QString, int>("entry", "size");
        row("empty", "mod++a.tar.gz", 0);
        row("large", "mod++a.tar.gz", 30000000);
        row("dash", "-rf", 1);
        row("dots", "...", 1);
        row("odd", "My Pictures++it's [1] ü 日本 \"x\" $HOME %41 #1?.jpg", 1);
        row("long", QString(255, 'n'), 1);
    }
    void comesBack()
    {
        QFETCH(QString, entry);
        QFETCH(int, size);
        QByteArray bytes(size, 'x');
        for (qsizetype index = 0; index < bytes.size(); index += 4099) {
            bytes[index] = static_cast<char>(index);
        }
        QCOMPARE(ask(*any, Method::Check, {}), "stored");
        QCOMPARE(ask(*any, Method::Put, entry, file("a", "what was there before")), "stored");
        QCOMPARE(ask(*any, Method::Put, entry, file("a", bytes)), "stored");
        QCOMPARE(entries(), QStringList{entry});
        QCOMPARE(ask(*any, Method::Get, entry, file("back", "another content")), "stored");
        QVERIFY(content("back") == bytes);
        QCOMPARE(ask(*any, Method::Remove, entry), "stored");
        QCOMPARE(entries(), QStringList());
    }

    void namesThatDiffer()
    {
        const QStringList names = {"a",     "A",  "a b", "a+b",     "a++b", "a%20b",
                                   "a%2Bb", "a%", "ä",   "a\u0308", "a."};
        for (const QString &name : names) {
            QCOMPARE(ask(*any, Method::Put, name, file("sent", name.toUtf8())), "stored");
        }
        QCOMPARE(entries().size(), names.size());
        for (const QString &name : names) {
            QCOMPARE(ask(*any, Method::Get, name, local->filePath("back")), "stored");
            QCOMPARE(content("back"), name.toUtf8());
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
            any->submit({Method::Put, "e", path, local->filePath("data")}, noted("e"));
        }
        QVERIFY(finished(*any));
        QCOMPARE(outcomes, QStringList({"stored e", "kept e", "kept e"}));
    }

    void eachHasOneOutcomeInOrder()
    {
        QStringList expected;
        for (int number = 0; number < 60; ++number) {
            const QString name = QString("f%1").arg(number);
            submit(*any, Method::Put, name, file(name, name.toUtf8()));
            submit(*any, Method::Get, name, local->filePath("back " + name));
            submit(*any, Method::Remove, number % 2 == 0 ? name : "a/b");
            expected << "stored " + name << "stored " + name
                     << (number % 2 == 0 ? "stored " + name : "kept a/b");
        }
        any->submit({Method::Check, {}, {}}, {});
        any->submit({Method::Check, {}, {}},
                    [this](const RequestOutcome &) { submit(*any, Method::Check, "next"); });
        QVERIFY(finished(*any));
        QCOMPARE(sortedByEntry(outcomes), sortedByEntry(expected << "stored next"));
        QCOMPARE(entries().size(), 30);
        QCOMPARE(content("back f59"), "f59");
    }

    void cancelled()
    {
        for (const bool puts : {true, false}) {
            init();
            const Method method = puts ? Method::Put : Method::Get;
            QCOMPARE(ask(*any, Method::Put, "entry", file("first", puts ? "old" : big)), "stored");
            file("back", puts ? big : "old");
            submit(*any, method, "entry", local->filePath("back"));
            submit(*any, Method::Get, "entry", local->filePath("first"));
            outcomes.clear();
            QVERIFY(underWay(*any));
            any->cancelRequests("why");
            const QStringList expected = {isDirectory() ? "kept entry" : "failed entry", "kept entry"};
            QCOMPARE(outcomes, expected);
            QCOMPARE(reason, "why");
            QVERIFY(!any->hasPendingRequests());
            QTest::qWait(300);
            QCOMPARE(outcomes, expected);
            QVERIFY(content("back") == (puts ? big : "old"));
            QVERIFY(stored("entry") == (puts ? "old" : big));
            QCOMPARE(entries(), QStringList{"entry"});
            QCOMPARE(localFiles(), QStringList({"back", "first"}));
            QCOMPARE(ask(*any, method, "entry", local->filePath("back")), "stored");
        }
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
        QCOMPARE(outcomes,
                 isDirectory() ? QStringList({"kept a", "kept b"}) : QStringList({"failed a", "failed b"}));
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
                QVERIFY(outcomes == QStringList{"kept next"} ||
                        (!isDirectory() && outcomes == QStringList{"failed next"}));
            }
        }
    }
};

QTEST_GUILESS_MAIN(tst_repository)
#include "tst_repository.moc"
