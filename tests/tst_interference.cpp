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

    void prioritiesAreThoseOfTheBegin()
    {
        QVERIFY(start() && save());
        device->call("setSaveRestoreLevel", {1});
        write("A", {"f", "n"}, "new");
        const QDBusPendingCall call = beginAndHold("GET A.cksum");
        device->call("setSaveRestorePriority", {true, true, true});
        QCOMPARE(releaseAndEnd(call), QVariant(true));
        QVERIFY(holds("A", "f", "new") && holds("A", "n", "old") && holds("A", "l", "old"));
        QVERIFY(save());
        QVERIFY(holds("A", "n", "new"));
    }

    void restoreLosesItsRepository_data()
    {
        columns<bool>("server");
        row("server", true);
        row("directory", false);
    }
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

    void saveLosesItsRepositoryWhileItIsChecked()
    {
        StoreServer other;
        QVERIFY(start());
        const QDBusPendingCall call = beginAndHold("GET ");
        device->call("setRepositoryUrl", {other.url()});
        QCOMPARE(releaseAndEnd(call), QVariant(false));
        QVERIFY(isShown("The repository was changed: abort backup operations."));
        QVERIFY(repository().isEmpty() && other.requests.isEmpty());
        QVERIFY(save());
        QVERIFY(repository().isEmpty() && !other.entries.isEmpty());
    }

    void sameUrlAgain()
    {
        QVERIFY(start() && save());
        for (const QByteArray request : {"GET A.cksum", "PUT f"}) {
            write("A", {"f", "n", "l"}, request);
            const QDBusPendingCall call = beginAndHold(request);
            device->call("setRepositoryUrl", {url()});
            QCOMPARE(releaseAndEnd(call), QVariant(true));
            QCOMPARE(popUps.size(), 0);
            QVERIFY(holds("A", "f", request) && holds("A", "n", request) && holds("A", "l", request));
        }
    }

    void capabilityWaitsForTheEnd()
    {
        QVERIFY(start());
        const QDBusPendingCall call = beginAndHold("GET A.cksum");
        device->call("setSettingValue", {"SaveRestoreLevel", "0"}, "SettingsManager");
        QCOMPARE(device->capability(), int(Capability::TEMPORARY_UNAVAILABLE));
        QCoreApplication::processEvents();
        QCOMPARE(states, QList<int>{Capability::TEMPORARY_UNAVAILABLE});
        QCOMPARE(releaseAndEnd(call), QVariant(true));
        QCOMPARE(device->capability(), int(Capability::UNAVAILABLE));
        QCOMPARE(states, QList<int>({Capability::TEMPORARY_UNAVAILABLE, Capability::UNAVAILABLE}));
        QVERIFY(holds("A", "l", "old"));
    }
};

QTEST_GUILESS_MAIN(tst_interference)
#include "tst_interference.moc"
