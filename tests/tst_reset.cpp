#include "platform/core/VYXModule.h"
#include "tests/support/OperationTest.h"

/// Resets over the bus, with modules that reset themselves and report, and some that do not.
class tst_reset : public OperationTest
{
    Q_OBJECT

    QStringList events;

    void report(const QString &event, const QString &module, bool needsReboot) const
    {
        QDBusMessage message =
            QDBusMessage::createSignal(VYXModule::objectPath(module), "com.corvane.Pelorin.VYXEvent", event);
        message << QVariantMap{{"ModuleName", module}, {"NeedReboot", needsReboot}} << QString();
        device->bus().send(message);
    }

    void addModule(const QString &name, const QString &arguments = {})
    {
        device->addModule(name,
                          "<reset-to-default><sql-command db-name='d'>DELETE FROM t WHERE v=1</sql-command>"
                          "</reset-to-default><reset-to-factory><sql-command db-name='d'>DELETE FROM t"
                          "</sql-command></reset-to-factory>",
                          arguments);
        device->sql(name, "d", "CREATE TABLE t(v); INSERT INTO t VALUES(1), (2)");
        device->write("usr/lib/VYXApplication/recipe/" + name + "/content.tsv",
                      "text\tsettings.ini\tvolume=5\nnoise\tcache/noise\t100\n");
        device->writeData(name, "settings.ini", "volume=9");
        device->writeData(name, "added.txt", "mine");
    }

    QByteArray rows(const QString &module) const
    {
        return device->sql(module, "d", "SELECT group_concat(v) FROM t").trimmed();
    }

    bool waitFor(const QString &event) const
    {
        return TestDevice::waitUntil([&] { return events.contains(event); });
    }

private Q_SLOTS:
    void commands()
    {
        const QString other = device->dataPath("B", "d.data");
        const QList<std::pair<QString, QString>> commands = {
            {"", "DELETE FROM t"},
            {"d", "DELETE FROM t WHERE v = 1; UPDATE t SET v = 'a;b' WHERE v = 2"},
            {"d", "DELETE FROM nowhere; DELETE FROM t"},
            {"odd 'ü' %41?",
             "CREATE TRIGGER g AFTER DELETE ON t BEGIN DELETE FROM u; INSERT INTO u VALUES(7);"
             "END; DELETE FROM t"},
            {"d", "ATTACH '" + other + "' AS b; DELETE FROM b.t"},
            {"d", "VACUUM INTO '" + device->path("copy") + "'"},
            {"d", "VACUUM; INSERT INTO t VALUES('again')"},
            {"missing", "CREATE TABLE t(v)"},
            {"missing", "CREATE TABLE t(v)"},
            {"../B/d", "DELETE FROM t"},
            {"link", "DELETE FROM t"},
            {"text", "DELETE FROM t"}};
        QString description;
        for (const auto &[database, sql] : commands) {
            description += "<sql-command db-name=\"" + database + "\">" + sql + "</sql-command>";
        }
        device->addModule("A", "<reset-to-default>" + description + "</reset-to-default>");
        addModule("B");
        device->sql("A", "d", "CREATE TABLE t(v); INSERT INTO t VALUES(1), (2)");
        device->sql("A", "odd 'ü' %41?", "CREATE TABLE t(v); CREATE TABLE u(v); INSERT INTO t VALUES(1)");
        device->writeData("A", "text.data", "no database at all, but long enough to look like one");
        QFile::link(other, device->dataPath("A", "link.data"));
        QVERIFY(device->start());
        QCOMPARE(device->result("resetToDefault"), QVariant(false));
        QCOMPARE(rows("A"), "a;b,again");
        QCOMPARE(device->sql("A", "odd 'ü' %41?", "SELECT count(*) FROM t; SELECT v FROM u"), "0\n7\n");
        QCOMPARE(rows("B"), "2");
        QVERIFY(!QFile::exists(device->dataPath("A", "missing.data")) &&
                !QFile::exists(device->path("copy")));
    }

    void everybodyReports()
    {
        addModule("A", "--needs-reboot");
        addModule("B");
        addModule("Ended");
        QVERIFY(device->start("VYXSaveRestore"));
        events.clear();
        device->listen(
            {"reset_data_default", "reset_default_done", "reset_data_default_complete", "reset_data_factory",
             "reset_factory_done"},
            store.get(), [this](const VYXEvent &event) {
                events << (event.getName() + " " + event.getArgument("ModuleName").toString()).trimmed();
            });
        QVERIFY(device->result("stopModule", {"Ended"}, "ApplicationManager").toBool());
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(device->result("resetToDefault"), QVariant(true));
        QVERIFY(waitFor("reset_data_default_complete") && waitFor("reset_default_done VYXSaveRestore"));
        QCOMPARE(events.constFirst(), "reset_data_default");
        for (const char *module : {"A", "B"}) {
            const qsizetype reported = events.indexOf(QString("reset_default_done ") + module);
            QVERIFY(reported > 0 && reported < events.indexOf("reset_data_default_complete"));
            QCOMPARE(rows(module), "2");
            QCOMPARE(device->readData(module, "settings.ini"), "volume=5");
            QVERIFY(QFile::exists(device->dataPath(module, "added.txt")));
        }
        device->call("startModule", {"Ended"}, "ApplicationManager");
        QVERIFY(device->waitForName("Ended"));
        QCOMPARE(device->call("resetToFactory").type(), QDBusMessage::ReplyMessage);
        QVERIFY(timer.elapsed() < 10000);
        for (const char *module : {"A", "B", "Ended"}) {
            QVERIFY(waitFor(QString("reset_factory_done ") + module));
            QCOMPARE(rows(module), "");
            QCOMPARE(QDir(device->dataPath(module, "")).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
                     QStringList({"cache", "d.data", "settings.ini"}));
            QVERIFY(TestDevice::waitUntil([&] { return device->modulePid(module) == 0; }));
        }
    }

    void onlyTheReportsAskedForCount()
    {
        addModule("A");
        addModule("Silent", "--ignore-reset");
        QVERIFY(device->start());
        device->markLog();
        QDBusPendingCall running = device->callLater("resetToDefault");
        QVERIFY(device->waitForLog("module Silent has not reset yet"));
        report("reset_factory_done", "Silent", true);
        QVERIFY(!device->save());
        QCOMPARE(TestDevice::resultOf(running), QVariant(false));

        device->markLog();
        running = device->callLater("resetToDefault");
        QVERIFY(device->waitForLog("about to refresh"));
        report("reset_default_done", "Silent", true);
        report("reset_default_done", "Silent", false);
        QCOMPARE(TestDevice::resultOf(running), QVariant(true));

        device->call("resetToFactory");
        QVERIFY(TestDevice::waitUntil([&] { return device->modulePid("Silent") == 0; }));
        QCOMPARE(rows("Silent"), "");
    }

    void modulesThatAreNotKnown()
    {
        addModule("A");
        QVERIFY(device->startService("VYXSaveRestore"));
        QCOMPARE(device->result("resetToDefault"), QVariant(false));
        QVERIFY(device->startManagers());
        device->call("resetToFactory");
        QCOMPARE(rows("A"), "");
        QVERIFY(TestDevice::waitUntil([&] { return device->modulePid("A") == 0; }));
    }
};

QTEST_GUILESS_MAIN(tst_reset)
#include "tst_reset.moc"
