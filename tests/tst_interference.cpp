#include "platform/records/Capability.h"
#include "tests/support/OperationTest.h"

/// Settings that are changed while a save or restore runs.
class tst_interference : public OperationTest
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        startAfresh();
        device->addModule("A", "<files><file>f</file><file priority='normal'>n</file>"
                               "<file priority='low'>l</file></files>");
        write("A", {"f", "n", "l"}, "old");
    }
    void cleanup() { QCOMPARE(TestDevice::retire(device), QString()); }

    void prioritiesAreThoseOfTheBegin_data()
    {
        columns<QString, QVariantList>("method", "arguments");
        row("level", "setSaveRestoreLevel", QVariantList{2});
        row("priorities", "setSaveRestorePriority", QVariantList{true, true, true});
    }
    void prioritiesAreThoseOfTheBegin()
    {
        QFETCH(QString, method);
        QFETCH(QVariantList, arguments);
        QVERIFY(start() && save());
        device->call("setSaveRestoreLevel", {1});
        write("A", {"f", "n"}, "new");
        const QDBusPendingCall call = beginAndHold("GET A.cksum");
        device->call(method, arguments);
        QCOMPARE(releaseAndEnd(call), QVariant(true));
        QVERIFY(holds("A", "f", "new"));
        QVERIFY(holds("A", "n", "old"));
        QVERIFY(holds("A", "l", "old"));
        QVERIFY(save());
        QVERIFY(holds("A", "n", "new"));
        QVERIFY(holds("A", "l", "old"));
    }

    void restoreLosesItsRepository_data() { places(); }
    void restoreLosesItsRepository()
    {
        QFETCH(bool, server);
        StoreServer other;
        QVERIFY(start() && save());
        write("A", {"f"}, "changed");
        const QDBusPendingCall call = beginAndHold("GET f", "startRestoreFromRepository");
        device->call("setRepositoryUrl", {server ? other.url() : device->repositoryPath()});
        end(call);
        QVERIFY(isShown("The repository was changed: abort restore operations."));
        QCOMPARE(device->readData("A", "f"), "changed");
        store->release();
        // No request is under way any more when another operation is through.
        QVERIFY(save());
        QCOMPARE(device->readData("A", "f"), "changed");
    }

    void saveLosesItsRepositoryWhileItIsChecked_data() { places(); }
    void saveLosesItsRepositoryWhileItIsChecked()
    {
        QFETCH(bool, server);
        StoreServer other;
        QVERIFY(start());
        const QDBusPendingCall call = beginAndHold("GET ");
        device->call("setRepositoryUrl", {server ? other.url() : device->repositoryPath()});
        QCOMPARE(releaseAndEnd(call), QVariant(false));
        QVERIFY(isShown("The repository was changed: abort backup operations."));
        QVERIFY(repository().isEmpty());
        QVERIFY(other.requests.isEmpty());
        QVERIFY(save());
    }

    void sameUrlAgain_data()
    {
        columns<QString>("request");
        row("while the state is fetched", "GET A.cksum");
        row("while data are sent", "PUT f");
        row("directory", "");
    }
    void sameUrlAgain()
    {
        QFETCH(QString, request);
        const bool server = !request.isEmpty();
        if (!server) {
            device->addModule("Slow", "<databases><database name='d'/></databases>", "--pause-delay 1000");
            device->sql("Slow", "d", "CREATE TABLE t(v)");
        }
        QVERIFY(start(server) && save());
        write("A", {"f", "n", "l"}, "new");
        const QDBusPendingCall call =
            server ? beginAndHold(request) : device->callLater("startSaveOnRepository");
        QVERIFY(server || device->waitForLog("Ask modules to prepare for saving/restoring data: Slow"));
        device->call("setRepositoryUrl", {url()});
        QCOMPARE(releaseAndEnd(call), QVariant(true));
        QCOMPARE(popUps.size(), 0);
        for (const char *item : {"f", "n", "l"}) {
            QVERIFY(holds("A", item, "new"));
        }
    }

    void saveAfterChangesOfServer()
    {
        StoreServer other;
        device->addModule("B", "<files><file>b</file></files>");
        write("B", {"b"}, "old");
        QVERIFY(start() && save());
        other.entries = store->entries;
        write("A", {"f"}, "new");
        for (const QString module : {"A", "B"}) {
            device->write("usr/lib/VYXApplication/migration/" + module + "Migration", "program");
            device->call("setModuleRelease", {module, "2027", "1.0"}, "ApplicationManager");
        }
        const QDBusPendingCall call = beginAndHold("PUT AMigration");
        device->call("setRepositoryUrl", {"http://127.0.0.1:1/save"});
        end(call);
        device->call("setRepositoryUrl", {other.url()});
        store->release();
        QVERIFY(save());
        QCOMPARE(popUps.size(), 0);
        QCOMPARE(other.entries.value("f"), "new");
        QCOMPARE(other.entries.value("B.version"), "2027::1.0\n");
    }

    void capabilityWaitsForTheEnd_data()
    {
        columns<int, bool, int>("level", "setting", "state");
        row("all", 2, false, int(Capability::AVAILABLE));
        row("none", 0, false, int(Capability::UNAVAILABLE));
        row("mandatory, by its setting", 1, true, int(Capability::AVAILABLE));
    }
    void capabilityWaitsForTheEnd()
    {
        QFETCH(int, level);
        QFETCH(bool, setting);
        QFETCH(int, state);
        QVERIFY(start());
        const QDBusPendingCall call = beginAndHold("GET A.cksum");
        if (setting) {
            device->call("setSettingValue", {"SaveRestoreLevel", QString::number(level)}, "SettingsManager");
        } else {
            device->call("setSaveRestoreLevel", {level});
        }
        QCOMPARE(device->capability(), int(Capability::TEMPORARY_UNAVAILABLE));
        QCoreApplication::processEvents();
        QCOMPARE(states, QList<int>{Capability::TEMPORARY_UNAVAILABLE});
        QCOMPARE(releaseAndEnd(call), QVariant(true));
        QCOMPARE(device->capability(), state);
        QCOMPARE(states, QList<int>({Capability::TEMPORARY_UNAVAILABLE, state}));
        QVERIFY(holds("A", "l", "old"));
    }
};

QTEST_GUILESS_MAIN(tst_interference)
#include "tst_interference.moc"
