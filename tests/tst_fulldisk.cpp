#include "tests/support/TestDevice.h"

#include <QTest>

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

namespace {

void tryToWrite(const char *path, const QByteArray &text)
{
    QFile file(path);
    if (file.open(QIODevice::WriteOnly)) {
        file.write(text);
    }
}

/// Become root of name spaces of our own, where file systems may be mounted that nobody else sees.
bool enterOwnNamespace()
{
    const QByteArray user = QByteArray::number(getuid());
    const QByteArray group = QByteArray::number(getgid());
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
        return false;
    }
    tryToWrite("/proc/self/setgroups", "deny");
    tryToWrite("/proc/self/uid_map", "0 " + user + " 1");
    tryToWrite("/proc/self/gid_map", "0 " + group + " 1");
    return mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

const bool ownNamespace = enterOwnNamespace();

} // namespace

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

    QByteArray digest(const QString &item) const
    {
        return TestDevice::shell("md5sum < '" + device->dataPath("A", item) + "'");
    }

private Q_SLOTS:
    void initTestCase()
    {
        if (!ownNamespace) {
            QSKIP("no user name spaces on this machine: a full disk cannot be made here");
        }
    }

    void init()
    {
        device = std::make_unique<TestDevice>();
        mountSmall("data");
        mountSmall("media/repository");
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
        for (const char *place : {"data", "media/repository", "tmp"}) {
            umount2(device->path(place).toUtf8().constData(), MNT_DETACH);
        }
        QCOMPARE(TestDevice::retire(device), QString());
    }

    void restoreOntoAFullDisk()
    {
        const QByteArray rows = device->sql("A", "d", "SELECT * FROM t");
        const QByteArray file = digest("f");
        const QByteArray member = digest("dir/x");
        QFile::remove(device->dataPath("A", "d.data"));
        device->sql("A", "d", "CREATE TABLE t(v); INSERT INTO t VALUES('damaged')");
        device->writeData("A", "f", "damaged");
        device->writeData("A", "dir/x", "damaged");
        fill("data");
        device->markLog();
        QCOMPARE(device->call("startRestoreFromRepository").type(), QDBusMessage::ReplyMessage);
        QCOMPARE(device->logged("could not be restored and stays as it was").size(), 3);
        QCOMPARE(device->sql("A", "d", "SELECT v FROM t"), "damaged\n");
        QCOMPARE(device->readData("A", "f"), "damaged");
        QCOMPARE(device->readData("A", "dir/x"), "damaged");
        QCOMPARE(TestDevice::shell("find '" + device->path("data") + "' -name '.saverestore*'"), "");
        empty("data");
        device->call("startRestoreFromRepository");
        QCOMPARE(device->sql("A", "d", "SELECT * FROM t"), rows);
        QCOMPARE(digest("f"), file);
        QCOMPARE(digest("dir/x"), member);
    }

    void stageOntoAFullDisk()
    {
        const QStringList before = device->entries();
        const QByteArray checksums = device->entry("A.cksum");
        TestDevice::shell("rm -rf '" + device->path("tmp/VYXApplication/SaveRestore/Save") + "'/*");
        fill("tmp");
        device->markLog();
        device->save();
        QVERIFY(device->hasLogged("error VYXSaveRestore: "));
        QCOMPARE(device->entries(), before);
        QCOMPARE(device->entry("A.cksum"), checksums);
        empty("tmp");
        QVERIFY(device->save());
        QCOMPARE(device->entry("A.cksum"), checksums);
    }
};

QTEST_GUILESS_MAIN(tst_fulldisk)
#include "tst_fulldisk.moc"
