#include "platform/records/Capability.h"
#include "tests/support/OperationTest.h"

#include <csignal>

/// Modules that do not pause as they should, and a service that has to end while they are paused.
class tst_pause : public OperationTest
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

private Q_SLOTS:
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
        QVERIFY(position("Dump database 'd' of module 'A'") <
                position("Ask modules to prepare for saving/restoring data: Other"));
        QVERIFY(device->allRun({"A", "Plain", "Other"}));
    }

    void modulesThatFail_data()
    {
        columns<QString, bool, QString>("arguments", "saved", "log");
        row("never stops", "--ignore-pause", false, "");
        row("stops too late", "--pause-delay 4000", false,
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
};

QTEST_GUILESS_MAIN(tst_pause)
#include "tst_pause.moc"
