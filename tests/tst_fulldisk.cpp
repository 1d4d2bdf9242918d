#include "tests/support/TestDevice.h"

#include <QTest>

#include <sys/mount.h>
#include <unistd.h>

/// File systems that fill up under a save and under a restore.
class tst_fulldisk : public QObject
{
    Q_OBJECT

    std::unique_ptr<TestDevice> device;

    void mountSmall(const QString &relative) const
    {
        QCOMPARE(mount("tmpfs", device->path(relative).toUtf8().constData(), "tmpfs", 0, "size=3m"), 0);
    }

    void fill(const QString &relative) const
    {
        TestDevice::shell("dd if=/dev/zero bs=4k of='" + device->path(relative) + "/filler' 2>/dev/null");
    }

    void empty(const QString &relative) const { QFile::remove(device->path(relative + "/filler")); }

private Q_SLOTS:
    void initTestCase()
    {
        if (qEnvironmentVariableIsEmpty("OWN_NAMESPACE")) {
            QSKIP("no user name spaces on this machine: a full disk cannot be made here");
        }
    }

    void init()
    {
        device = std::make_unique<TestDevice>();
        mountSmall("data");
        mountSmall("tmp");
        device->write("data/dev_mode", {});
        device->addModule("A", "<databases><database name='d'/></databases>"
                               "<files><file>f</file><file zip='true'>dir</file></files>");
        device->sql("A", "d",
                    "CREATE TABLE t(v); WITH RECURSIVE c(n) AS (SELECT 1 UNION ALL SELECT n+1 FROM c "
                    "WHERE n < 3000) INSERT INTO t SELECT hex(randomblob(60)) FROM c;");
        TestDevice::shell(
            "cd '" + device->dataPath("A", "") +
            "' && mkdir dir && head -c 300000 /dev/urandom > f && head -c 300000 /dev/urandom > dir/x");
        QVERIFY(device->startAndSave());
    }

    void cleanup()
    {
        device->stopService();
        for (const char *place : {"data", "tmp"}) {
            umount2(device->path(place).toUtf8().constData(), MNT_DETACH);
        }
        QCOMPARE(TestDevice::retire(device), QString());
    }

    void restoreOntoAFullDisk()
    {
        const QByteArray rows = device->sql("A", "d", "SELECT * FROM t");
        const QByteArray file = device->readData("A", "f");
        const QByteArray member = device->readData("A", "dir/x");
        QFile::remove(device->dataPath("A", "d.data"));
        device->sql("A", "d", "CREATE TABLE t(v); INSERT INTO t VALUES('damaged')");
        device->writeData("A", "f", "damaged");
        device->writeData("A", "dir/x", "damaged");
        fill("data");
        QCOMPARE(device->call("startRestoreFromRepository").type(), QDBusMessage::ReplyMessage);
        QCOMPARE(device->sql("A", "d", "SELECT v FROM t"), "damaged\n");
        QCOMPARE(device->readData("A", "f"), "damaged");
        QCOMPARE(device->readData("A", "dir/x"), "damaged");
        QCOMPARE(TestDevice::shell("find '" + device->path("data") + "' -name '.saverestore*'"), "");
        empty("data");
        device->call("startRestoreFromRepository");
        QCOMPARE(device->sql("A", "d", "SELECT * FROM t"), rows);
        QVERIFY(device->readData("A", "f") == file);
        QVERIFY(device->readData("A", "dir/x") == member);
    }

    void stageOntoAFullDisk()
    {
        const QStringList before = device->entries();
        const QByteArray checksums = device->entry("A.cksum");
        TestDevice::shell("rm -rf '" + device->path("tmp/VYXApplication/SaveRestore/Save") + "'/*");
        fill("tmp");
        device->save();
        QCOMPARE(device->entries(), before);
        QCOMPARE(device->entry("A.cksum"), checksums);
        empty("tmp");
        QVERIFY(device->save());
        QCOMPARE(device->entry("A.cksum"), checksums);
    }
};

/// The test runs again as root of name spaces of its own, where it may mount what nobody else sees.
int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("OWN_NAMESPACE") && system("unshare --map-root-user --mount true") == 0) {
        qputenv("OWN_NAMESPACE", "yes");
        execlp("unshare", "unshare", "--map-root-user", "--mount", argv[0], nullptr);
    }
    QCoreApplication application(argc, argv);
    tst_fulldisk test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_fulldisk.moc"
