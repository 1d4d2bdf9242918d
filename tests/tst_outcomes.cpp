#include "tests/support/OperationTest.h"

#include <algorithm>

namespace {

QString entryOf(QString key)
{
    return key.replace("/", "++").replace(".data", ".dump.gz").replace(".tar", ".tar.gz");
}

} // namespace

/// What the repository holds after saves that went partly wrong, and what comes back from it.
class tst_outcomes : public OperationTest
{
    Q_OBJECT

    void addFiles(const QString &module, const QStringList &items)
    {
        device->addModule(module, described(items));
        write(module, items, "old");
    }

    static QString described(const QStringList &items)
    {
        return "<files><file>" + items.join("</file><file>") + "</file></files>";
    }

    /// True when a save ran to its end although the server refused these requests.
    bool saveWithRefusals(const QStringList &requests, int status = 503)
    {
        store->failStatus = status;
        for (const QString &request : requests) {
            treated.insert(request, StoreServer::Fail);
        }
        const bool saved = save();
        treated.clear();
        return saved;
    }

    void writeProgram(const QByteArray &content) const
    {
        device->write("usr/lib/VYXApplication/migration/AMigration", content);
    }

    void change(const QStringList &keys, const QByteArray &content) const
    {
        write("A", keys.filter("bad/") + QStringList{"good", "z/file"}, content);
        write("B", {"other"}, content);
        device->sql("A", "d", "CREATE TABLE IF NOT EXISTS t(v); INSERT INTO t VALUES(1)");
    }

    /// Save while two items cannot be sent, in the way that the test's row says.
    bool saveWithFault(const QStringList &keys)
    {
        const QString fault = QTest::currentDataTag();
        if (fault.startsWith("refused")) {
            return saveWithRefusals({"PUT " + entryOf(keys.first()), "PUT " + entryOf(keys.last())}, 413);
        }
        for (const QString &key : keys) {
            QDir().mkpath(fault == "in the way" ? device->repositoryPath(entryOf(key) + "/x") : ".");
        }
        forgetEvents();
        device->markLog();
        const QDBusPendingCall call = device->callLater("startSaveOnRepository");
        if (fault.startsWith("vanish") && device->waitForLog("restoring data: Slow:")) {
            for (const QString &key : keys) {
                QFile::remove(device->dataPath("A", key));
            }
        }
        const bool saved = end(call).toBool();
        for (const QString &key : keys) {
            QDir(device->repositoryPath(entryOf(key))).removeRecursively();
        }
        return saved;
    }

private Q_SLOTS:
    void init() { startAfresh(); }
    void cleanup() { QCOMPARE(TestDevice::retire(device), QString()); }

    void itemsThatAreNotSent_data()
    {
        columns<bool, bool, QStringList>("server", "isNew", "keys");
        const QStringList files = {"bad/x", "bad/y"};
        row("refused", true, false, files);
        row("refused, never there", true, true, files);
        row("refused, database and archive", true, false, QStringList({"A/d.data", "A/z.tar"}));
        row("vanish, server", true, false, files);
        row("vanish, directory", false, false, files);
        row("in the way", false, true, files);
        row("too long", false, true, QStringList({"bad/" + QString(252, 'k'), "bad/" + QString(252, 'l')}));
    }
    void itemsThatAreNotSent()
    {
        QFETCH(bool, server);
        QFETCH(bool, isNew);
        QFETCH(QStringList, keys);
        const QString database = "<databases><database name='d'/></databases>";
        device->addModule("A", database + "<files><file>bad</file><file>good</file>"
                                          "<file zip='true'>z</file></files>");
        device->addModule("B", described({"other"}));
        device->addModule("Slow", database, "--pause-delay 300");
        device->sql("Slow", "d", "CREATE TABLE t(v)");
        change(isNew ? QStringList() : keys, "old");
        QVERIFY(start(server) && save());
        const Entries before = repository();
        const QStringList digests = {digest("A", keys.first()), digest("A", keys.last())};
        change(keys, "new");
        QVERIFY(saveWithFault(keys));
        QCOMPARE(QStringList({digest("A", keys.first()), digest("A", keys.last())}), digests);
        QStringList names;
        for (const QString &key : keys) {
            QCOMPARE(repository().value(entryOf(key)), before.value(entryOf(key)));
            names << QRegularExpression::escape(key) << QRegularExpression::escape(entryOf(key));
        }
        QVERIFY(holds("A", "good", "new") && holds("B", "other", "new"));
        QVERIFY(isShown("Error while uploading files.", "(?s)(?=.*\\b2\\b)(?=.*(" + names.join('|') + "))"));

        change(keys, "newer");
        QVERIFY(save());
        QVERIFY(holds("A", "good", "newer") && holds("B", "other", "newer"));
        const bool lasting = QTest::currentDataTag() == QString("too long");
        QCOMPARE(popUps.isEmpty(), !lasting);
        QCOMPARE(!digest("A", keys.first()).isEmpty() && digest("A", keys.first()) != digests.first(),
                 !lasting);
    }

    void stateThatIsNotKnown_data()
    {
        columns<QString, int>("entry", "how");
        for (const char *entry : {"A.cksum", "modules-list.sav"}) {
            QTest::addRow("%s refused", entry) << entry << int(StoreServer::Fail);
            QTest::addRow("%s cut off", entry) << entry << int(StoreServer::Close);
        }
    }
    void stateThatIsNotKnown()
    {
        QFETCH(QString, entry);
        QFETCH(int, how);
        device->addModule("A", "<files><file>f</file><file priority='normal'>n</file>"
                               "<file priority='low'>l</file></files>");
        write("A", {"f", "n", "l"}, "old");
        addFiles("B", {"b"});
        QVERIFY(start() && save());
        const Entries before = store->entries;
        device->call("setSaveRestoreLevel", {1});
        write("A", {"f"}, "new");
        write("B", {"b"}, "new");
        treated.insert("GET " + entry, StoreServer::Behaviour(how));
        store->failStatus = 503;
        save();
        QVERIFY(entry == "modules-list.sav" || holds("B", "b", "new"));
        Entries after = store->entries;
        for (const char *ofB : {"b", "B.cksum"}) {
            if (entry == "A.cksum") {
                after[ofB] = before[ofB];
            }
        }
        QCOMPARE(after, before);
        treated.clear();
        QVERIFY(save());
        QVERIFY(holds("A", "f", "new") && holds("B", "b", "new"));
        QVERIFY(holds("A", "n", "old") && holds("A", "l", "old"));
    }

    void firstSaveIsNoFailure_data() { places(); }
    void firstSaveIsNoFailure()
    {
        QFETCH(bool, server);
        addFiles("A", {"f"});
        writeProgram("program");
        QVERIFY(start(server) && save());
        QVERIFY(holds("A", "f", "old"));
        QCOMPARE(popUps.size(), 0);
        QCOMPARE(device->logged("error VYXSaveRestore: "), QStringList());
    }

    void programThatIsRefused()
    {
        addFiles("A", {"f"});
        QVERIFY(start());
        for (const char *release : {"2026", "2027"}) {
            device->call("setModuleRelease", {"A", release, "1.0"}, "ApplicationManager");
            writeProgram(release);
            saveWithRefusals({"PUT AMigration"});
            QVERIFY(save());
            QCOMPARE(store->entries.value("AMigration"), release);
            QCOMPARE(store->entries.value("A.version"), QByteArray(release) + "::1.0\n");
        }
    }

    void newNameThatIsRefused()
    {
        addFiles("A", {"x"});
        addFiles("B", {"y"});
        const auto writeBoth = [&](const QByteArray &ofA, const QByteArray &ofB) {
            write("A", {"x"}, ofA);
            write("B", {"x"}, ofB);
        };
        writeBoth("of A", "of B");
        QVERIFY(start() && save());
        device->describe("B", described({"x", "y"}));
        saveWithRefusals({"PUT A++x"});
        QCOMPARE(store->entries.value("x"), "of A");
        writeBoth("damaged", "damaged");
        restore();
        QVERIFY(QByteArrayList({"", "damaged", "of A"}).contains(device->readData("A", "x")));
        QVERIFY(QByteArrayList({"", "damaged", "of B"}).contains(device->readData("B", "x")));

        writeBoth("of A", "of B");
        QVERIFY(save());
        writeBoth("damaged", "damaged");
        restore();
        QCOMPARE(device->readData("A", "x"), "of A");
        QCOMPARE(device->readData("B", "x"), "of B");
    }

    void namesWithDots()
    {
        device->addModule("A", "<databases><database name='a'/><database name='a.b'/></databases><files>"
                               "<file zip='true'>conf</file><file zip='true'>conf.d</file></files>");
        for (const char *name : {"a", "a.b"}) {
            device->sql("A", name, "CREATE TABLE t(v); INSERT INTO t VALUES('old')");
        }
        write("A", {"conf/x", "conf.d/x"}, "old");
        QVERIFY(start(false) && save());
        device->sql("A", "a.b", "UPDATE t SET v='new'");
        write("A", {"conf.d/x"}, "new");
        QVERIFY(save());
        write("A", {"conf/x", "conf.d/x"}, "damaged");
        device->sql("A", "a", "DROP TABLE t");
        device->sql("A", "a.b", "DROP TABLE t");
        restore();
        QCOMPARE(device->readData("A", "conf/x"), "old");
        QCOMPARE(device->readData("A", "conf.d/x"), "new");
        QCOMPARE(device->sql("A", "a", "SELECT v FROM t"), "old\n");
        QCOMPARE(device->sql("A", "a.b", "SELECT v FROM t"), "new\n");
    }

    void listedModulesAreTheDescribedOnes()
    {
        addFiles("A", {"a"});
        addFiles("B", {"b"});
        QVERIFY(start(false) && save());
        device->call("stopModule", {"B"}, "ApplicationManager");
        write("A", {"a"}, "new");
        QVERIFY(save());
        QVERIFY(holds("A", "a", "new"));
        QCOMPARE(listedModules(), QStringList({"A", "B"}));
        device->call("startModule", {"B"}, "ApplicationManager");
        QVERIFY(device->waitForName("B"));
        write("B", {"b"}, "damaged");
        restore();
        QCOMPARE(device->readData("B", "b"), "old");
        QVERIFY(QFile::remove(device->path("etc/VYXApplication/module/B/restorable.xml")));
        QVERIFY(save());
        QCOMPARE(listedModules(), QStringList{"A"});
    }

    void noModuleRuns()
    {
        addFiles("A", {"a"});
        QVERIFY(start(false) && save());
        QCOMPARE(device->stopService(), 0);
        device->call("stopModule", {"A"}, "ApplicationManager");
        QVERIFY(device->startService("FastService"));
        save();
        QCOMPARE(listedModules(), QStringList{"A"});
        QVERIFY(holds("A", "a", "old"));
    }

    void heldLinesThatAreRefused_data()
    {
        columns<int>("status");
        row("503", 503);
        row("507", 507);
    }
    void heldLinesThatAreRefused()
    {
        QFETCH(int, status);
        addFiles("A", {"f", "gone"});
        addFiles("B", {"b"});
        QVERIFY(start() && save());
        const Entries before = store->entries;
        device->describe("A", described({"f"}));
        write("A", {"f"}, "new");
        write("B", {"b"}, "new");
        saveWithRefusals({"PUT A.cksum"}, status);
        for (const char *ofA : {"A.cksum", "f", "gone"}) {
            QCOMPARE(store->entries.value(ofA), before.value(ofA));
        }
        QVERIFY(holds("B", "b", "new"));

        write("A", {"f"}, "old");
        QVERIFY(save());
        write("A", {"f"}, "damaged");
        write("B", {"b"}, "damaged");
        restore();
        QCOMPARE(device->readData("A", "f"), "old");
        QCOMPARE(device->readData("B", "b"), "new");
    }

    void whatPromisesIsSentLast()
    {
        addFiles("A", {"f"});
        addFiles("B", {"b"});
        writeProgram("program");
        QVERIFY(start() && save());
        const QStringList sent = store->requests.filter("PUT ");
        const auto promises = [](const QString &request) {
            return request.endsWith(".version") || request.endsWith("modules-list.sav");
        };
        QCOMPARE(std::count_if(sent.cbegin(), sent.cend(), promises), 3);
        QVERIFY2(std::is_partitioned(sent.cbegin(), sent.cend(), std::not_fn(promises)),
                 qPrintable(sent.join(", ")));
    }

    void fileThatChangesOnTheWay_data() { places(); }
    void fileThatChangesOnTheWay()
    {
        QFETCH(bool, server);
        addFiles("A", {"f"});
        device->addModule("Slow", "<databases><database name='d'/></databases>", "--pause-delay 300");
        device->sql("Slow", "d", "CREATE TABLE t(v)");
        QVERIFY(start(server));
        const QDBusPendingCall call = device->callLater("startSaveOnRepository");
        QVERIFY(device->waitForLog("restoring data: Slow:")); // A's digests have been taken
        write("A", {"f"}, QByteArray(100000, 'n'));
        QVERIFY(end(call).toBool());
        QVERIFY(holds("A", "f", QByteArray(100000, 'n')));
    }

    void connectionEndsAfterTheData()
    {
        addFiles("A", {"f"});
        QVERIFY(start() && save());
        device->call("setModuleRelease", {"A", "2027", "1.0"}, "ApplicationManager");
        write("A", {"f"}, "new");
        bool ended = false;
        store->behaviour = [&](int, const QString &method, const QString &entry) {
            const bool now = ended;
            ended = ended || (method == "PUT" && entry == "f");
            return now ? StoreServer::Close : StoreServer::Proper;
        };
        save();
        QCOMPARE(store->entries.value("f"), "new");
        QCOMPARE(store->entries.value("A.version"), "2026::1.0\n");
    }
};

QTEST_GUILESS_MAIN(tst_outcomes)
#include "tst_outcomes.moc"
