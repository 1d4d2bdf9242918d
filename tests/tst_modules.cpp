#include "platform/core/VYXModule.h"
#include "platform/records/Capability.h"
#include "tests/support/OperationTest.h"

#include <array>
#include <csignal>
#include <sys/socket.h>
#include <sys/un.h>

/// What modules have to do for an operation: they pause and reset themselves, or not as they should, and the
/// service may have to end meanwhile.
class tst_modules : public OperationTest
{
    Q_OBJECT

    void addDatabaseModule(const QString &name, const QString &dependency, const QString &arguments = {})
    {
        device->addModule(name,
                          "<databases><database name='d'><dependency>" + dependency +
                              "</dependency></database></databases>",
                          arguments);
        device->sql(name, "d", "CREATE TABLE t(v)");
    }

    QStringList events;

    void report(const QString &event, const QString &module, bool needsReboot) const
    {
        QDBusMessage message =
            QDBusMessage::createSignal(VYXModule::objectPath(module), "com.corvane.Pelorin.VYXEvent", event);
        message << QVariantMap{{"ModuleName", module}, {"NeedReboot", needsReboot}} << QString();
        device->bus().send(message);
    }

    void addResetModule(const QString &name, const QString &arguments = {})
    {
        device->addModule(name,
                          "<databases><database name='d'/></databases><files><file>settings.ini</file>"
                          "<file>added.txt</file><file zip='true'>cache</file></files>"
                          "<reset-to-default><sql-command db-name='d'>DELETE FROM t WHERE v=1</sql-command>"
                          "</reset-to-default><reset-to-factory><sql-command db-name='d'>DELETE FROM t"
                          "</sql-command></reset-to-factory>",
                          arguments);
        device->sql(name, "d", "CREATE TABLE t(v); INSERT INTO t VALUES(1), (2)");
        device->write("usr/lib/VYXApplication/recipe/" + name + "/content.tsv",
                      "text\tsettings.ini\tvolume=5\nnoise\tcache/noise\t100\n");
        device->writeData(name, "settings.ini", "volume=9");
        device->writeData(name, "added.txt", "mine");
        device->writeData(name, "cache/noise", "once");
    }

    QByteArray rows(const QString &module) const
    {
        return device->sql(module, "d", "SELECT group_concat(v) FROM t").trimmed();
    }

    bool waitFor(const QString &event) const
    {
        return TestDevice::waitUntil([&] { return events.contains(event); });
    }

    int systemd = -1;

    /// Listen where the service says how it is; a name with "@" is an abstract one.
    void listenAsSystemd(const QByteArray &name)
    {
        struct sockaddr_un address = {AF_UNIX, {}};
        std::copy(name.begin(), name.end(), address.sun_path);
        std::replace(address.sun_path, address.sun_path + 1, '@', '\0');
        systemd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        const auto length = socklen_t(offsetof(struct sockaddr_un, sun_path) + size_t(name.size()));
        QCOMPARE(bind(systemd, reinterpret_cast<const struct sockaddr *>(&address), length), 0);
    }

    /// What it has said since.
    QByteArrayList heard() const
    {
        QByteArrayList messages;
        std::array<char, 100> text = {};
        for (ssize_t size = 0; (size = recv(systemd, text.data(), text.size(), 0)) >= 0;) {
            messages << QByteArray(text.data(), size);
        }
        return messages;
    }

private Q_SLOTS:
    void systemdHearsHowItIs_data()
    {
        columns<bool>("abstract");
        row("a path", false);
        row("an abstract name", true);
    }
    void systemdHearsHowItIs()
    {
        QFETCH(bool, abstract);
        const QByteArray name = (abstract ? "@saverestore" : "") + device->path("notify").toLocal8Bit();
        addDatabaseModule("A", "Slow");
        device->addModule("Slow", "", "--pause-delay 700");
        QVERIFY(device->startManagers());
        listenAsSystemd(name);
        qputenv("NOTIFY_SOCKET", name);
        qputenv("WATCHDOG_USEC", "200000");
        QVERIFY(device->startService("VYXSaveRestore"));
        qunsetenv("NOTIFY_SOCKET");
        qunsetenv("WATCHDOG_USEC");
        const auto pid = static_cast<pid_t>(device->service().processId());
        QVERIFY(device->save()); // the event loop of a wait
        const QByteArrayList meanwhile = heard();
        QCOMPARE(meanwhile.value(0), "READY=1");
        QVERIFY(meanwhile.size() > 2 && meanwhile.count("WATCHDOG=1") == meanwhile.size() - 1);
        kill(pid, SIGSTOP);
        QVERIFY(TestDevice::waitUntil([&] { return TestDevice::processState(pid) == "T"; }));
        heard();
        QTest::qWait(500);
        QCOMPARE(heard(), QByteArrayList());
        kill(pid, SIGCONT);
        QCOMPARE(device->stopService(), 0);
        QVERIFY(heard().contains("STOPPING=1"));
        close(systemd);
    }

    void pausedOnlyWhileCopied()
    {
        addDatabaseModule("A", "Plain");
        device->addModule("Plain", "");
        addDatabaseModule("Other", "VYXSaveRestore");
        QVERIFY(device->startAndSave());
        const QString log = device->wholeLog();
        const auto position = [&](const QString &text) { return log.indexOf(text); };
        QVERIFY(log.contains("Ask modules to prepare for saving/restoring data: A:Plain:\n"));
        QVERIFY(log.contains("Ask modules to prepare for saving/restoring data: Other:\n"));
        QVERIFY(position("Copying database 'd' of module 'A'") < position("Unstopping module A"));
        QVERIFY(position("Unstopping module Plain") < position("Dump database 'd' of module 'A'"));
        QVERIFY(device->allRun({"A", "Plain", "Other"}));
    }

    void modulesThatFail_data()
    {
        columns<QString, bool, QString>("arguments", "saved", "log");
        row("never stops", "--ignore-pause", false, "");
        row("stops too late", "--pause-delay 5000", false,
            "Module 'Slow' has paused too late and is resumed");
        row("the other is killed meanwhile", "--pause-delay 700", true, "");
    }
    void modulesThatFail()
    {
        QFETCH(QString, arguments);
        QFETCH(bool, saved);
        QFETCH(QString, log);
        addDatabaseModule("A", "Slow");
        device->addModule("Slow", "", arguments);
        QVERIFY(device->start());
        const QDBusPendingCall running = device->callLater("startSaveOnRepository");
        QVERIFY(TestDevice::waitUntil([&] { return device->moduleState("A") == "T"; }));
        if (saved) {
            kill(static_cast<pid_t>(device->modulePid("A")), SIGKILL);
        }
        QCOMPARE(TestDevice::resultOf(running), QVariant(saved));
        QVERIFY(device->waitForLog(log));
        QVERIFY(device->allRun({saved ? "Slow" : "A", "Slow"}));
        QCOMPARE(device->entries().isEmpty(), !saved);
        QCOMPARE(device->capability(), int(Capability::AVAILABLE));
    }

    /// Given up by a service that then dies, paused when nobody is there, and resumed by the next.
    void pausedWithoutService()
    {
        addDatabaseModule("A", "Slow");
        device->addModule("Slow", "", "--pause-delay 7500");
        QVERIFY(device->start());
        QVERIFY(!device->save());
        QTest::qWait(3500);
        device->service().kill();
        device->service().waitForFinished();
        QVERIFY(TestDevice::waitUntil([&] { return device->moduleState("Slow") == "T"; }));
        QVERIFY(device->startService("FastService"));
        QVERIFY(device->allRun({"A", "Slow"}));
    }

    void moduleStartedAnewMeanwhile()
    {
        device->addModule("Slow", "<databases><database name='d'/></databases>", "--pause-delay 700");
        device->sql("Slow", "d", "CREATE TABLE t(v)");
        addDatabaseModule("A", "Plain");
        device->addModule("Plain", "");
        QVERIFY(device->start());
        const QDBusPendingCall running = device->callLater("startSaveOnRepository");
        QVERIFY(device->waitForLog("data: Slow:"));
        device->call("stopModule", {"Plain"}, "ApplicationManager");
        device->call("startModule", {"Plain"}, "ApplicationManager");
        QVERIFY(TestDevice::resultOf(running).toBool());
        QVERIFY(device->hasLogged("Module 'Plain' said it is ready"));
        QVERIFY(device->allRun({"A", "Plain", "Slow"}));
    }

    void serviceEnds_data()
    {
        columns<QString, int, int>("method", "pauseDelay", "signal"); // 0: the bus goes
        row("save", "startSaveOnRepository", 700, SIGTERM);
        row("save without a bus", "startSaveOnRepository", 700, 0);
        row("save, one stops after the end", "startSaveOnRepository", 6000, SIGTERM);
        row("save, killed", "startSaveOnRepository", 700, SIGKILL);
        row("restore", "startRestoreFromRepository", 700, SIGTERM);
        row("restore without a bus", "startRestoreFromRepository", 700, 0);
        row("reset to default", "resetToDefault", 0, SIGTERM);
        row("reset to factory without a bus", "resetToFactory", 0, 0);
    }
    void serviceEnds()
    {
        QFETCH(QString, method);
        QFETCH(int, pauseDelay);
        QFETCH(int, signal);
        addDatabaseModule("A", "Slow");
        device->addModule("Slow", "", "--ignore-reset --pause-delay " + QString::number(pauseDelay));
        device->sql("A", "d", "INSERT INTO t VALUES(1)");
        QVERIFY(device->startManagers() && device->startService("VYXSaveRestore"));
        if (method.contains("Restore")) {
            QVERIFY(device->save());
            device->sql("A", "d", "DELETE FROM t");
            device->markLog();
        }
        const qint64 pid = device->modulePid("A");
        const QStringList entries = device->entries();
        const QByteArray rows = device->sql("A", "d", "SELECT count(*) FROM t");
        const QDBusPendingCall running = device->callLater(method);
        QVERIFY(
            device->waitForLog(pauseDelay > 0 ? "Module 'A' said it is ready" : "Slow has not reset yet"));
        QElapsedTimer timer;
        timer.start();
        if (signal == 0) {
            device->killBus();
            QVERIFY(device->service().waitForFinished(10000));
            QCOMPARE(device->service().exitCode(), 1);
        } else {
            kill(static_cast<pid_t>(device->service().processId()), signal);
            QVERIFY(device->service().waitForFinished(10000));
            QVERIFY(signal == SIGKILL || !TestDevice::resultOf(running).toBool());
            const bool late = pauseDelay > 5000;
            QVERIFY(!late || TestDevice::waitUntil([&] { return device->moduleState("Slow") == "T"; }));
            QVERIFY((signal != SIGKILL && !late) || device->startService());
            QVERIFY(device->allRun({"A", "Slow"}));
        }
        QVERIFY(timer.elapsed() < 10000);
        QCOMPARE(device->sql("A", "d", "SELECT count(*) FROM t"), rows);
        QCOMPARE(device->entries(), entries);
        QVERIFY(TestDevice::waitUntil([&] { return TestDevice::processState(pid) != "T"; }));
        device.reset();
    }

    void resetCommands()
    {
        const QString other = device->dataPath("B", "d.data");
        const QList<std::pair<QString, QString>> commands = {
            {"", "DELETE FROM t"},
            {"d", "DELETE FROM t WHERE v = 1; UPDATE t SET v = 'a;b' WHERE v = 2"},
            {"d", "DELETE FROM nowhere; DELETE FROM t"},
            {"odd 'ü' %41?",
             "CREATE TRIGGER g AFTER DELETE ON t BEGIN DELETE FROM f; INSERT INTO u VALUES(7);"
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
        addResetModule("B");
        device->sql("A", "d", "CREATE TABLE t(v); INSERT INTO t VALUES(1), (2)");
        device->sql("A", "odd 'ü' %41?",
                    "CREATE TABLE t(v); CREATE TABLE u(v); INSERT INTO t VALUES(1);"
                    "CREATE VIRTUAL TABLE f USING fts5(v); INSERT INTO f VALUES('a')");
        device->writeData("A", "text.data", "no database at all, but long enough to look like one");
        QFile::link(other, device->dataPath("A", "link.data"));
        QVERIFY(device->start());
        QCOMPARE(device->result("resetToDefault"), QVariant(false));
        QCOMPARE(rows("A"), "a;b,again");
        QCOMPARE(device->sql("A", "odd 'ü' %41?",
                             "SELECT (SELECT count(*) FROM t) + (SELECT count(*) FROM f); SELECT v FROM u"),
                 "0\n7\n");
        QCOMPARE(rows("B"), "2");
        QVERIFY(!QFile::exists(device->dataPath("A", "missing.data")) &&
                !QFile::exists(device->path("copy")));
    }

    void everybodyResets()
    {
        addResetModule("A", "--needs-reboot");
        addResetModule("B");
        addResetModule("Ended");
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

    void healthyDeviceIsQuiet()
    {
        addResetModule("A");
        addResetModule("B");
        device->write("usr/lib/VYXApplication/migration/AMigration", "#!/bin/sh\n");
        QVERIFY(device->start("VYXSaveRestore"));
        QString log = device->wholeLog();
        device->stopService();
        const auto moveData = [this](const QString &from, const QString &to) {
            return QFile::rename(device->path("data/" + from), device->path("data/" + to));
        };
        QVERIFY(moveData("VYXApplication", "away") && device->startService("VYXSaveRestore"));
        QVERIFY(moveData("away", "VYXApplication"));
        const qsizetype started = device->wholeLog().size();
        device->listen({"show_popup"}, store.get(), [this](const VYXEvent &event) { popUps << event; });
        forgetEvents();
        QVERIFY(device->save());
        device->describe("B", "<files><file>settings.ini</file></files>");
        QVERIFY(device->save());
        QVERIFY(!device->entries().contains("B++d.dump.gz"));
        QVERIFY(device->save());
        for (const char *damage : {"rm -r A/* B/*", "true"}) {
            TestDevice::shell("cd '" + device->dataPath("A", "..") + "' && " + damage);
            device->call("startRestoreFromRepository");
            QCOMPARE(rows("A") + device->readData("A", "cache/noise") + device->readData("B", "settings.ini"),
                     "1,2oncevolume=9");
        }
        device->call("resetToDefault");
        device->call("resetToFactory");
        QVERIFY(TestDevice::waitUntil([&] { return device->modulePid("B") == 0; }));
        QDBusMessage verify = QDBusMessage::createMethodCall(
            VYXModule::busName("VYXSaveRestore"), VYXModule::objectPath("VYXSaveRestore"),
            "com.corvane.Pelorin.SaveRestoreControl1", "Verify");
        verify << QVariantMap{{"full", true}};
        QCOMPARE(device->bus().call(verify).type(), QDBusMessage::ReplyMessage);
        QVERIFY(device->waitForLog("Operation ends: verify"));
        log += device->wholeLog();
        static const QRegularExpression loud("^(warning|error) ");
        QCOMPARE(log.split('\n').filter(loud), QStringList());
        QVERIFY(popUps.isEmpty());
        QStringList told = device->wholeLog().mid(started).split('\n').filter("info ");
        static const QRegularExpression amounts("done: [1-9]\\d* \\([1-9]\\d* bytes\\), .*, failed: 0 "
                                                "\\(0 bytes\\); in \\d+\\.\\d{3} s$");
        for (const qsizetype end :
             {1, 7, 15}) { // of the first save, the restore of what was gone, the verify
            QVERIFY2(told.value(end).contains(amounts), qPrintable(told.value(end)));
        }
        for (QString &line : told) {
            line = line.section(';', 0, 0).section(": ", 1);
        }
        QStringList expected;
        for (const QString operation :
             {"save", "save", "save", "restore", "restore", "reset", "reset", "verify"}) {
            expected << "Operation begins: " + operation << "Operation ends: " + operation + ", Success";
        }
        QCOMPARE(told, expected);
    }

    void onlyTheReportsAskedForCount()
    {
        addResetModule("A");
        addResetModule("Silent", "--ignore-reset");
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

    void resetsOfUnknownModules()
    {
        addResetModule("A");
        QVERIFY(device->startService("VYXSaveRestore"));
        QCOMPARE(device->result("resetToDefault"), QVariant(false));
        QVERIFY(device->startManagers());
        device->call("resetToFactory");
        QCOMPARE(rows("A"), "");
        QVERIFY(TestDevice::waitUntil([&] { return device->modulePid("A") == 0; }));
    }
};

QTEST_GUILESS_MAIN(tst_modules)
#include "tst_modules.moc"
