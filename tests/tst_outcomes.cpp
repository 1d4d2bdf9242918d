#include "tests/support/OperationTest.h"

#include <algorithm>

/// What the repository holds after saves that went partly wrong, and what comes back from it.
class tst_outcomes : public OperationTest
{
    Q_OBJECT

    const QStringList items = {"x",     "bad/x",  "bad/y", "z/file",
                               "fresh", "../B/b", "../C/x"}; ///< as A sees them
    const QString filesOfA = "<file>x</file><file>bad</file><file zip='true'>z</file>";

    void describe(const QString &module, const QString &files)
    {
        device->describe(module, "<databases><database name='d'/></databases><files>" + files + "</files>");
    }

    void addModule(const QString &module, const QString &files)
    {
        device->addModule(module, {});
        describe(module, files);
    }

    void change(const QByteArray &content) const
    {
        write("A", items, content);
        device->sql("A", "d", "DROP TABLE IF EXISTS t; CREATE TABLE t AS SELECT '" + content + "'");
    }

    /// What a restore brings back, "item=content" each, without the items of this content.
    QString restoredExcept(const QByteArray &content)
    {
        change("damaged");
        restore();
        QStringList others = {"d=" + device->sql("A", "d", "SELECT * FROM t").trimmed()};
        for (const QString &item : items) {
            others << item + "=" + device->readData("A", item);
        }
        return others.filter(QRegularExpression("=(?!" + content + "$)")).join(' ');
    }

private Q_SLOTS:
    /// Some requests of a save are refused: no line promises what its entry does not hold, everything else is
    /// complete, and the next save and restore bring all of it.
    void requestsThatAreRefused_data()
    {
        // what a restore brings back instead of the new, and what the pop-up says
        columns<QStringList, int, QString, QString>("requests", "status", "others", "detail");
        const QString others = "bad/x=old bad/y=old z/file=old fresh=damaged";
        const QString old = "d=old x=old " + others + " ../C/x=damaged";
        const QString all = "d=old x=old " + others + " ../B/b=old ../C/x=damaged";
        row("files", QStringList{"PUT bad++x", "PUT bad++y"}, 503, "bad/x=old bad/y=old", "^2 .*'bad/x'");
        row("file, never there", QStringList{"PUT fresh"}, 503, "fresh=damaged", "^1 .*'fresh'");
        row("database and archive", QStringList{"PUT A++d.dump.gz", "PUT A++z.tar.gz"}, 503,
            "d=old z/file=old", "^2 .*'A/d.data'");
        row("entry of a new name", QStringList{"PUT A++x"}, 503, "x=old ../C/x=damaged", "'x'");
        row("migration program", QStringList{"PUT AMigration"}, 413,
            QString("d=old x=old " + others).replace("old", "damaged"), "'AMigration'");
        row("held lines", QStringList{"PUT A.cksum"}, 507, old, "'A.cksum'");
        row("modules list", QStringList{"PUT modules-list.sav"}, 503, "", "'modules-list.sav'");
        row("a module's state", QStringList{"GET A.cksum"}, 503, old, "'A.cksum'");
        row("the modules", QStringList{"GET modules-list.sav"}, 503, all, "'modules-list.sav'");
        row("the repository", QStringList{"GET "}, 503, all, "");
    }
    void requestsThatAreRefused()
    {
        QFETCH(QStringList, requests);
        QFETCH(int, status);
        QFETCH(QString, others);
        QFETCH(QString, detail);
        addModule("A", filesOfA + "<file>gone</file>");
        addModule("B", "<file>b</file>");
        addModule("C", {});
        write("A", {"gone"}, "old");
        const QString program = "usr/lib/VYXApplication/migration/AMigration";
        device->write(program, "program");
        change("old");
        QVERIFY(start() && save() && popUps.isEmpty());
        // What promises is sent last.
        const QStringList sent = store->requests.filter("PUT ");
        const auto promises = [](const QString &request) {
            return request.endsWith(".version") || request.endsWith("modules-list.sav");
        };
        QCOMPARE(std::count_if(sent.cbegin(), sent.cend(), promises), 4);
        QVERIFY2(std::is_partitioned(sent.cbegin(), sent.cend(), std::not_fn(promises)),
                 qPrintable(sent.join(", ")));

        device->call("setModuleRelease", {"A", "2027", "1.0"}, "ApplicationManager");
        device->write(program, "later program");
        describe("A", filesOfA + "<file>fresh</file>");
        describe("C", "<file>x</file>"); // a name that A has
        change("new");
        store->failStatus = status;
        for (const QString &request : requests) {
            treated.insert(request, StoreServer::Fail);
        }
        QCOMPARE(save(), requests != QStringList{"GET "});
        treated.clear();
        QVERIFY(isShown(
            detail.isEmpty() ? "Connection to repository failed." : "Error while uploading files.", detail));
        QCOMPARE(restoredExcept("new"), others);

        change("newer");
        QVERIFY(save() && popUps.isEmpty());
        QCOMPARE(store->entries.value("AMigration"), "later program");
        QCOMPARE(store->entries.value("A.version"), "2027::1.0\n");
        QVERIFY(!store->entries.contains("gone"));
        QCOMPARE(restoredExcept("newer"), "");
    }

    void listedModulesAreTheDescribedOnes()
    {
        for (const QString module : {"A", "B"}) {
            addModule(module, "<file>" + module + "</file>");
            write(module, {module}, "old");
        }
        QVERIFY(start(false) && save());
        device->call("stopModule", {"B"}, "ApplicationManager");
        write("A", {"A"}, "new");
        QVERIFY(save());
        QVERIFY(holds("A", "A", "new"));
        QCOMPARE(repository()["modules-list.sav"], "A\nB\n");
        // No module runs when the service starts.
        QCOMPARE(device->stopService(), 0);
        device->call("stopModule", {"A"}, "ApplicationManager");
        QVERIFY(device->startService("FastService"));
        save();
        QCOMPARE(repository()["modules-list.sav"], "A\nB\n");
        for (const QString module : {"A", "B"}) {
            device->call("startModule", {module}, "ApplicationManager");
            QVERIFY(device->waitForName(module));
            write(module, {module}, "damaged");
        }
        restore();
        QCOMPARE(device->readData("A", "A") + device->readData("B", "B"), "newold");
        QVERIFY(QFile::remove(device->path("etc/VYXApplication/module/B/restorable.xml")));
        QVERIFY(save());
        QCOMPARE(repository()["modules-list.sav"], "A\n");
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
        device->addModule("A", "<files><file>f</file></files>");
        write("A", {"f"}, "old");
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
