#include "platform/records/Capability.h"
#include "tests/support/DataTable.h"
#include "tests/support/TestDevice.h"

#include <csignal>

/// Modules that do not pause as they should, and a service that has to end while they are paused.
class tst_pause : public QObject
{
    Q_OBJECT

    std::unique_ptr<TestDevice> device;

    void addDatabaseModule(const QString &name, const QString &dependency, const QString &arguments = {})
    {
        device->addModule(name,
                          "<databases><database name='d'><dependency>" + dependency +
                              "</dependency></database></databases>",
                          arguments);
        device->sql(name, "d", "CREATE TABLE t(v)");
    }

    bool startWithSlowModule()
    {
        addDatabaseModule("A", "Slow");
        device->addModule("Slow", "", "--pause-delay 1500");
        return device->start();
    }

private Q_SLOTS:
    void init() { device = std::make_unique<TestDevice>(); }
    void cleanup() { QCOMPARE(TestDevice::retire(device), QString()); }

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
        QCOMPARE(device->service().state(), QProcess::Running);
    }

    void moduleThatNeverStops()
    {
        addDatabaseModule("A", "Stubborn");
        device->addModule("Stubborn", "", "--ignore-pause");
        QVERIFY(device->start());
        QVERIFY(!device->save());
        QVERIFY(device->hasLogged("warning VYXSaveRestore: Failed to stop all modules for save/restore"));
        QVERIFY(device->hasLogged(
            "error VYXSaveRestore: Saving High Priority data failed: aborting save/restore"));
        QVERIFY(device->logged("Process A state: ").size() >= 500);
        QVERIFY(device->allRun({"A", "Stubborn"}));
        QVERIFY(device->entries().isEmpty());
        QCOMPARE(device->capability(), int(Capability::AVAILABLE));
    }

    void moduleThatStopsTooLate()
    {
        addDatabaseModule("A", "Slow");
        device->addModule("Slow", "", "--pause-delay 9000");
        QVERIFY(device->start());
        QVERIFY(!device->save());
        QVERIFY(device->waitForLog("Module 'Slow' has paused too late and is resumed"));
        QVERIFY(device->allRun({"A", "Slow"}));
    }

    void moduleThatStopsAfterTheServiceHasEnded()
    {
        addDatabaseModule("A", "Slow");
        device->addModule("Slow", "", "--pause-delay 7000");
        QVERIFY(device->start());
        device->callLater("startSaveOnRepository");
        QVERIFY(device->waitForLog("Wait for modules to be paused"));
        QCOMPARE(device->stopService(), 0);
        QVERIFY(TestDevice::waitUntil([&] { return device->moduleState("Slow") == "T"; }));
        QVERIFY(device->startService("FastService"));
        QVERIFY(device->allRun({"A", "Slow"}));
    }

    void secondOperation()
    {
        QVERIFY(startWithSlowModule());
        const QDBusPendingCall first = device->callLater("startSaveOnRepository");
        QVERIFY(device->waitForLog("Wait for modules to be paused"));
        QVERIFY(!device->save());
        QVERIFY(device->hasLogged("Another save, restore or reset is running: abort."));
        QCOMPARE(device->capability(), int(Capability::TEMPORARY_UNAVAILABLE));
        QVERIFY(TestDevice::resultOf(first).toBool());
        QVERIFY(device->save());
    }

    void moduleKilledWhilePaused()
    {
        QVERIFY(startWithSlowModule());
        const QDBusPendingCall running = device->callLater("startSaveOnRepository");
        QVERIFY(TestDevice::waitUntil([&] { return device->moduleState("A") == "T"; }));
        kill(static_cast<pid_t>(device->modulePid("A")), SIGKILL);
        QVERIFY(TestDevice::resultOf(running).toBool());
        QVERIFY(device->hasLogged("for module A"));
        QVERIFY(device->hasLogged("Could not resume module A ("));
        QVERIFY(device->allRun({"Slow"}));
    }

    void moduleStartedAnewMeanwhile()
    {
        device->addModule("Slow", "<databases><database name='d'/></databases>", "--pause-delay 1500");
        device->sql("Slow", "d", "CREATE TABLE t(v)");
        addDatabaseModule("A", "Plain");
        device->addModule("Plain", "");
        QVERIFY(device->start());
        const QDBusPendingCall running = device->callLater("startSaveOnRepository");
        QVERIFY(device->waitForLog("data: Slow:"));
        device->call("stopModule", {"Plain"}, "ApplicationManager");
        device->call("startModule", {"Plain"}, "ApplicationManager");
        QVERIFY(device->waitForName("Plain"));
        QVERIFY(TestDevice::resultOf(running).toBool());
        QVERIFY(device->waitForLog("Module 'Plain' said it is ready"));
        QVERIFY(device->allRun({"A", "Plain", "Slow"}));
    }

    void repositoryChangedMeanwhile()
    {
        QVERIFY(startWithSlowModule());
        const QDBusPendingCall running = device->callLater("startSaveOnRepository");
        QVERIFY(device->waitForLog("Wait for modules to be paused"));
        device->call("setRepositoryUrl", {"http://localhost/x"});
        QVERIFY(!TestDevice::resultOf(running).toBool());
        QVERIFY(device->hasLogged("The repository was changed: abort backup operations."));
        QVERIFY(device->allRun({"A", "Slow"}));
        QVERIFY(device->entries().isEmpty());
    }

    void serviceEnds_data()
    {
        columns<QString, QString, QString, int, bool>("method", "sign", "line", "pauseDelay", "busGoes");
        const auto twoRows = [](const char *name, const char *method, const char *sign, const char *line,
                                int pauseDelay) {
            for (const bool busGoes : {false, true}) {
                QTest::addRow("%s, %s", name, busGoes ? "bus gone" : "SIGTERM")
                    << method << sign << line << pauseDelay << busGoes;
            }
        };
        const char *const save = "startSaveOnRepository";
        const char *const paused = "Module 'A' said it is ready";
        const char *const waiting = "module Slow has not reset yet";
        twoRows("save, one on its way", save, paused, "abort backup operations", 1500);
        twoRows("save, one that never stops", save, paused, "abort backup operations", 60000);
        twoRows("restore", "startRestoreFromRepository", paused, "abort restore operations", 1500);
        twoRows("reset to default", "resetToDefault", waiting, "abort reset operations", 0);
        twoRows("reset to factory", "resetToFactory", waiting, "abort reset operations", 0);
    }
    void serviceEnds()
    {
        QFETCH(QString, method);
        QFETCH(QString, sign);
        QFETCH(QString, line);
        QFETCH(int, pauseDelay);
        QFETCH(bool, busGoes);
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
        QVERIFY(device->waitForLog(sign));
        QElapsedTimer timer;
        timer.start();
        if (busGoes) {
            device->killBus();
            QVERIFY(device->service().waitForFinished(10000));
            QCOMPARE(device->service().exitCode(), 1);
            QVERIFY(
                device->hasLogged("error VYXSaveRestore: The connection to the system bus is lost: ending"));
        } else {
            QCOMPARE(device->stopService(), 0);
            QVERIFY(!TestDevice::resultOf(running).toBool());
            QVERIFY(device->allRun({"A", "Slow"}));
        }
        QVERIFY(timer.elapsed() < 10000);
        QVERIFY(device->hasLogged("warning VYXSaveRestore: The service is asked to end: " + line));
        QCOMPARE(device->sql("A", "d", "SELECT count(*) FROM t"), rows);
        QCOMPARE(device->entries(), entries);
        QVERIFY(!device->hasLogged("Restore finished"));
        QVERIFY(TestDevice::waitUntil([&] { return TestDevice::processState(pid) != "T"; }));
        device.reset();
    }
};

QTEST_GUILESS_MAIN(tst_pause)
#include "tst_pause.moc"
