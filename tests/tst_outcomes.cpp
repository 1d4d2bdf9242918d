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

    void change(const QStringList &keys, const QByteArray &content) const
    {
        write("A", keys.filter("bad/") + QStringList{"good", "z/file"}, content);
        write("B", {"other"}, content);
        device->sql("A", "d", "CREATE TABLE IF NOT EXISTS t(v); INSERT INTO t VALUES(1)");
    }

private Q_SLOTS:
    void itemsThatAreRefused_data()
    {
        columns<bool, QStringList>("isNew", "keys");
        row("files", false, QStringList({"bad/x", "bad/y"}));
        row("files, never there", true, QStringList({"bad/x", "bad/y"}));
        row("database and archive", false, QStringList({"A/d.data", "A/z.tar"}));
    }
    void itemsThatAreRefused()
    {
        QFETCH(bool, isNew);
        QFETCH(QStringList, keys);
        device->addModule("A", "<databases><database name='d'/></databases><files><file>bad</file>"
                               "<file>good</file><file zip='true'>z</file></files>");
        addFiles("B", {"other"});
        change(isNew ? QStringList() : keys, "old");
        QVERIFY(start() && save() && popUps.isEmpty());
        const Entries before = repository();
        change(keys, "new");
        QVERIFY(saveWithRefusals({"PUT " + entryOf(keys.first()), "PUT " + entryOf(keys.last())}));
        QStringList names;
        for (const QString &key : keys) {
            QCOMPARE(digest("A", key), digest("A", key, before));
            QCOMPARE(repository().value(entryOf(key)), before.value(entryOf(key)));
            names << QRegularExpression::escape(key) << QRegularExpression::escape(entryOf(key));
        }
        QVERIFY(holds("A", "good", "new") && holds("B", "other", "new"));
        QVERIFY(isShown("Error while uploading files.", "(?s)(?=.*\\b2\\b)(?=.*(" + names.join('|') + "))"));

        change(keys, "newer");
        QVERIFY(save() && popUps.isEmpty());
        QVERIFY(holds("A", "good", "newer") && holds("B", "other", "newer"));
        QVERIFY(digest("A", keys.first()) != digest("A", keys.first(), before));
    }

    void stateThatIsNotKnown_data()
    {
        columns<QString>("entry");
        row("checksum file", "A.cksum");
        row("modules list", "modules-list.sav");
    }
    void stateThatIsNotKnown()
    {
        QFETCH(QString, entry);
        device->addModule("A", "<files><file>f</file><file priority='low'>l</file></files>");
        write("A", {"f", "l"}, "old");
        addFiles("B", {"b"});
        QVERIFY(start() && save());
        Entries before = store->entries;
        device->call("setSaveRestoreLevel", {1});
        write("A", {"f"}, "new");
        write("B", {"b"}, "new");
        saveWithRefusals({"GET " + entry});
        if (entry == "A.cksum") {
            QVERIFY(holds("B", "b", "new"));
            before["b"] = store->entries["b"];
            before["B.cksum"] = store->entries["B.cksum"];
            before["B.attributes"] = store->entries["B.attributes"];
        }
        QCOMPARE(store->entries, before);
        QVERIFY(save());
        QVERIFY(holds("A", "f", "new") && holds("B", "b", "new") && holds("A", "l", "old"));
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

    void noModuleRunsAtTheStart()
    {
        addFiles("A", {"a"});
        QVERIFY(start(false) && save());
        QCOMPARE(device->stopService(), 0);
        device->call("stopModule", {"A"}, "ApplicationManager");
        QVERIFY(device->startService("FastService"));
        save();
        QCOMPARE(listedModules(), QStringList{"A"});
        QVERIFY(holds("A", "a", "old"));
        device->call("startModule", {"A"}, "ApplicationManager");
        QVERIFY(device->waitForName("A"));
        write("A", {"a"}, "damaged");
        restore();
        QCOMPARE(device->readData("A", "a"), "old");
    }

    /// One request is refused: everything else is completed, and the next save and restore bring all of it.
    void requestThatIsRefused_data()
    {
        columns<QString, int>("request", "status");
        row("migration program", "PUT AMigration", 413);
        row("entry of a new name", "PUT A++x", 503);
        row("held lines", "PUT A.cksum", 507);
        row("modules list", "PUT modules-list.sav", 503);
    }
    void requestThatIsRefused()
    {
        QFETCH(QString, request);
        QFETCH(int, status);
        addFiles("A", {"x", "gone"});
        addFiles("B", {"b"});
        device->write("usr/lib/VYXApplication/migration/AMigration", "program");
        QVERIFY(start() && save());
        const Entries before = store->entries;
        device->call("setModuleRelease", {"A", "2027", "1.0"}, "ApplicationManager");
        device->write("usr/lib/VYXApplication/migration/AMigration", "later program");
        device->describe("A", described({"x"}));
        // B cannot take a name that A has in the same moment as A's lines are refused.
        const bool held = request == "PUT A.cksum";
        device->describe("B", described(held ? QStringList{"b"} : QStringList{"b", "x"}));
        write("B", {"b", "x"}, "of B");
        QVERIFY(saveWithRefusals({request}, status));
        QVERIFY(holds("B", "b", "of B"));
        if (held) {
            for (const char *ofA : {"A.cksum", "x", "gone", "A.version"}) {
                QCOMPARE(store->entries.value(ofA), before.value(ofA));
            }
        }
        write("A", {"x"}, "damaged");
        write("B", {"x"}, "damaged");
        restore();
        QVERIFY(QByteArrayList({"damaged", "old"}).contains(device->readData("A", "x")));
        QVERIFY(QByteArrayList({"damaged", "of B"}).contains(device->readData("B", "x")));

        write("A", {"x"}, "old");
        write("B", {"x"}, "of B");
        QVERIFY(save() && popUps.isEmpty());
        QCOMPARE(store->entries.value("AMigration"), "later program");
        QCOMPARE(store->entries.value("A.version"), "2027::1.0\n");
        QVERIFY(!store->entries.contains("gone"));
        write("A", {"x"}, "damaged");
        restore();
        QCOMPARE(device->readData("A", "x") + device->readData("B", "x"), "oldof B");
    }

    void whatPromisesIsSentLast()
    {
        addFiles("A", {"f"});
        addFiles("B", {"b"});
        device->write("usr/lib/VYXApplication/migration/AMigration", "program");
        QVERIFY(start() && save());
        QCOMPARE(popUps.size(), 0);
        const QStringList sent = store->requests.filter("PUT ");
        const auto promises = [](const QString &request) {
            return request.endsWith(".version") || request.endsWith("modules-list.sav");
        };
        QCOMPARE(std::count_if(sent.cbegin(), sent.cend(), promises), 3);
        QVERIFY2(std::is_partitioned(sent.cbegin(), sent.cend(), std::not_fn(promises)),
                 qPrintable(sent.join(", ")));
    }

    void fileThatChangesOnTheWay_data()
    {
        columns<bool>("server");
        row("server", true);
        row("directory", false);
    }
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
};

QTEST_GUILESS_MAIN(tst_outcomes)
#include "tst_outcomes.moc"
