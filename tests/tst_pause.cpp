#include "platform/core/VYXModule.h"
#include "platform/records/Capability.h"
#include "tests/support/TestDevice.h"

#include <QDBusPendingCall>
#include <QTest>

#include <csignal>

/// Modules that do not pause as they should, and a service that has to end while they are paused.
class tst_pause : public QObject
{
    Q_OBJECT

    std::unique_ptr<TestDevice> device;

    QDBusPendingCall startSave() const { return device->callLater("startSaveOnRepository"); }

    bool allRun(const QStringList &modules) const
    {
        return TestDevice::waitUntil([&] {
            return std::all_of(modules.cbegin(), modules.cend(),
                               [&](const QString &module) { return device->moduleState(module) == "S"; });
        });
    }

    void addDatabaseModule(const QString &name, const QString &dependency, const QString &arguments = {})
    {
        device->addModule(name,
                          "<databases><database name='d'><dependency>" + dependency +
                              "</dependency></database></databases>",
                          arguments);
        device->sql(name, "d", "CREATE TABLE t(v)");
    }

private Q_SLOTS:
    void init() { device = std::make_unique<TestDevice>(); }
    void cleanup() { QCOMPARE(TestDevice::retire(device), QString()); }

    void pausedOnlyWhileCopied()
    {
        addDatabaseModule("A", "Plain");
        device->addModule("Plain", "");
        addDatabaseModule("Other", "VYXSaveRestore");
        QVERIFY(device->startManagers() && device->startService("FastPauseService"));
        QVERIFY(device->save());
        const QString log = device->wholeLog();
        const auto position = [&](const QString &text) { return log.indexOf(text); };
        QVERIFY(log.contains("Ask modules to prepare for saving/restoring data: A:Plain:\n"));
        QVERIFY(log.contains("Ask modules to prepare for saving/restoring data: Other:\n"));
        QVERIFY(position("Copying database 'd' of module 'A'") < position("Unstopping module A"));
        QVERIFY(position("Unstopping module Plain") < position("Dump database 'd' of module 'A'"));
        QVERIFY(position("Dump database 'd' of module 'A'") <
                position("Ask modules to prepare for saving/restoring data: Other"));
        QVERIFY(allRun({"A", "Plain", "Other"}));
        QCOMPARE(device->service().state(), QProcess::Running);
    }

    void moduleThatNeverStops()
    {
        addDatabaseModule("A", "Stubborn");
        device->addModule("Stubborn", "", "--ignore-pause");
        QVERIFY(device->startManagers() && device->startService("FastPauseService"));
        QVERIFY(!device->save());
        QVERIFY(device->hasLogged("warning VYXSaveRestore: Failed to stop all modules for save/restore"));
        QVERIFY(device->hasLogged(
            "error VYXSaveRestore: Saving High Priority data failed: aborting save/restore"));
        QVERIFY(device->logged("Process A state: ").size() >= 500);
        QVERIFY(allRun({"A", "Stubborn"}));
        QVERIFY(device->entries().isEmpty());
        QCOMPARE(qdbus_cast<Capability>(
                     device->call("getCapability", {"SAVE_RESTORE_ENABLE"}).arguments().value(0))
                     .getState(),
                 Capability::AVAILABLE);
    }

    void moduleThatStopsTooLate()
    {
        addDatabaseModule("A", "Slow");
        device->addModule("Slow", "", "--pause-delay 9000");
        QVERIFY(device->startManagers() && device->startService("FastPauseService"));
        QVERIFY(!device->save());
        QVERIFY(TestDevice::waitUntil(
            [&] { return device->hasLogged("Module 'Slow' has paused too late and is resumed"); }));
        QVERIFY(allRun({"A", "Slow"}));
    }

    void secondOperation()
    {
        addDatabaseModule("A", "Slow");
        device->addModule("Slow", "", "--pause-delay 1500");
        QVERIFY(device->startManagers() && device->startService("FastPauseService"));
        QDBusPendingCall first = startSave();
        QVERIFY(TestDevice::waitUntil([&] { return device->hasLogged("Wait for modules to be paused"); }));
        QVERIFY(!device->save());
        QVERIFY(device->hasLogged("Another save, restore or reset is running: abort."));
        QCOMPARE(qdbus_cast<Capability>(
                     device->call("getCapability", {"SAVE_RESTORE_ENABLE"}).arguments().value(0))
                     .getState(),
                 Capability::TEMPORARY_UNAVAILABLE);
        first.waitForFinished();
        QVERIFY(first.reply().arguments().value(0).toBool());
        QVERIFY(device->save());
    }

    void moduleKilledWhilePaused()
    {
        addDatabaseModule("A", "Slow");
        device->addModule("Slow", "", "--pause-delay 1500");
        QVERIFY(device->startManagers() && device->startService("FastPauseService"));
        QDBusPendingCall running = startSave();
        QVERIFY(TestDevice::waitUntil([&] { return device->moduleState("A") == "T"; }));
        kill(static_cast<pid_t>(device->modulePid("A")), SIGKILL);
        running.waitForFinished();
        QVERIFY(running.reply().arguments().value(0).toBool());
        QVERIFY(device->hasLogged("for module A"));
        QCOMPARE(device->logged("Retry unstop module").size(), 4);
        QVERIFY(device->hasLogged("Could not resume module A ("));
        QVERIFY(allRun({"Slow"}));
    }

    void repositoryChangedMeanwhile()
    {
        addDatabaseModule("A", "Slow");
        device->addModule("Slow", "", "--pause-delay 1500");
        QVERIFY(device->startManagers() && device->startService("FastPauseService"));
        QDBusPendingCall running = startSave();
        QVERIFY(TestDevice::waitUntil([&] { return device->hasLogged("Wait for modules to be paused"); }));
        device->call("setRepositoryUrl", {"http://localhost/x"});
        running.waitForFinished();
        QVERIFY(!running.reply().arguments().value(0).toBool());
        QVERIFY(device->hasLogged("The repository was changed: abort backup operations."));
        QVERIFY(allRun({"A", "Slow"}));
        QVERIFY(device->entries().isEmpty());
    }

    void serviceEnds_data()
    {
        QTest::addColumn<int>("pauseDelay");
        QTest::newRow("while one is still on its way") << 1500;
        QTest::newRow("while one never stops") << 60000;
    }
    void serviceEnds()
    {
        QFETCH(int, pauseDelay);
        addDatabaseModule("A", "Slow");
        device->addModule("Slow", "", "--pause-delay " + QString::number(pauseDelay));
        QVERIFY(device->startManagers() && device->startService("FastPauseService"));
        QDBusPendingCall running = startSave();
        QVERIFY(TestDevice::waitUntil([&] { return device->moduleState("A") == "T"; }));
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(device->stopService(), 0);
        QVERIFY(timer.elapsed() < 10000);
        running.waitForFinished();
        QVERIFY(!running.reply().arguments().value(0).toBool());
        QVERIFY(allRun({"A", "Slow"}));
        QVERIFY(device->entries().isEmpty());
    }
};

QTEST_GUILESS_MAIN(tst_pause)
#include "tst_pause.moc"
