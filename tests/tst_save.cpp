#include "tests/support/TestDevice.h"

#include <QCryptographicHash>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

namespace {

QString md5(const QByteArray &content)
{
    return QString::fromLatin1(QCryptographicHash::hash(content, QCryptographicHash::Md5).toHex());
}

} // namespace

/// Whole saves over the bus, looked at in the repository.
class tst_save : public QObject
{
    Q_OBJECT

    std::unique_ptr<TestDevice> device;

    QStringList sent() const
    {
        QStringList names;
        for (const QString &line : device->logged("saved into '")) {
            const QString name = line.section('\'', 1, -4);
            if (!name.endsWith(".version") && !name.endsWith(".cksum") && name != "modules-list.sav") {
                names << name;
            }
        }
        names.sort();
        return names;
    }

    /// True when a device with one file has saved it.
    bool saveOneFile()
    {
        device->addModule("A", "<files><file>f</file></files>");
        device->writeData("A", "f", "f");
        return device->startAndSave();
    }

    bool saveAfterMark()
    {
        device->markLog();
        return device->save();
    }

private Q_SLOTS:
    void init() { device = std::make_unique<TestDevice>(); }
    void cleanup() { QCOMPARE(TestDevice::retire(device), QString()); }

    void storyOfThreeSaves()
    {
        device->addModule(
            "A", "<databases><database name='d'><dependency>C</dependency></database></databases>"
                 "<files><file>same.conf</file><file priority='low'>only a.txt</file>"
                 "<file zip='true' priority='normal'>conf/logs</file><file>deep/er/f</file></files>");
        device->addModule(
            "B", "<databases><database name='d'/></databases><files><file>other.conf</file></files>");
        device->addModule("C", "");
        device->sql("A", "d", "CREATE TABLE t(v); INSERT INTO t VALUES('of A')");
        device->sql("B", "d", "CREATE TABLE t(v); INSERT INTO t VALUES('of B')");
        device->writeData("A", "same.conf", "A's");
        device->writeData("A", "only a.txt", "x");
        device->writeData("A", "deep/er/f", "deep");
        device->writeData("A", "conf/logs/sub/1.log", "one");
        device->writeData("B", "same.conf", "B's");
        device->writeData("B", "other.conf", "other");
        QVERIFY(device->startAndSave());
        QCOMPARE(device->entries(),
                 QStringList({"A++conf++logs.tar.gz", "A++d.dump.gz", "A.cksum", "A.version", "B++d.dump.gz",
                              "B.cksum", "B.version", "deep++er++f", "modules-list.sav", "only a.txt",
                              "other.conf", "same.conf"}));
        QCOMPARE(device->entry("A.version"), "2026::1.0\n");
        QCOMPARE(device->entry("same.conf"), "A's");
        const auto lines = device->savedLines("A");
        QCOMPARE(lines.value("deep/er/f"), QStringList({md5("deep"), "file", "false", "high"}));
        QCOMPARE(lines.value("only a.txt"), QStringList({md5("x"), "file", "false", "low"}));
        QCOMPARE(lines.value("A/conf/logs.tar").mid(1), QStringList({"directory", "1", "normal"}));
        QCOMPARE(device->savedLines("B").value("B/d.data").mid(1), QStringList({"database", "high"}));
        QVERIFY(TestDevice::shell("zcat " + device->repositoryPath("B++d.dump.gz")).contains("of B"));
        QVERIFY(TestDevice::shell("tar -xzOf " + device->repositoryPath("A++conf++logs.tar.gz")) == "one");
        QCOMPARE(device->entry("modules-list.sav").split('\n').size(), 3);

        QVERIFY(saveAfterMark());
        QCOMPARE(sent(), QStringList());
        QVERIFY(!device->hasLogged("Remove file"));

        // A collision appears, a file and a directory go from the description, a database changes.
        const QString database = "<databases><database name='d'/></databases>";
        device->describe("A", database + "<files><file>same.conf</file><file>new.txt</file></files>");
        device->describe("B", database + "<files><file>same.conf</file><file>other.conf</file></files>");
        device->writeData("A", "new.txt", "new");
        device->sql("A", "d", "INSERT INTO t VALUES('more')");
        QVERIFY(saveAfterMark());
        QCOMPARE(sent(), QStringList({"A++d.dump.gz", "new.txt", "same.conf", "same.conf"}));
        QCOMPARE(device->entries(), QStringList({"A++d.dump.gz", "A++same.conf", "A.cksum", "A.version",
                                                 "B++d.dump.gz", "B++same.conf", "B.cksum", "B.version",
                                                 "modules-list.sav", "new.txt", "other.conf"}));
        QCOMPARE(device->entry("A++same.conf"), "A's");
        QCOMPARE(device->entry("B++same.conf"), "B's");

        // The collision goes again; another module takes over a name in the same save.
        device->describe("A", database + "<files><file>other.conf</file></files>");
        device->describe("B", database + "<files><file>same.conf</file></files>");
        device->writeData("A", "other.conf", "A's other");
        QVERIFY(saveAfterMark());
        QCOMPARE(device->entries(),
                 QStringList({"A++d.dump.gz", "A.cksum", "A.version", "B++d.dump.gz", "B.cksum", "B.version",
                              "modules-list.sav", "other.conf", "same.conf"}));
        QCOMPARE(device->entry("other.conf"), "A's other");
        QCOMPARE(device->entry("same.conf"), "B's");
        for (const char *module : {"A", "B", "C"}) {
            QCOMPARE(device->moduleState(module), "S");
        }
    }

    void modulesThatComeAndGo()
    {
        const QString description = "<files><file>x</file><file>B.version</file></files>";
        device->addModule("A", description);
        device->addModule("B", "");
        device->writeData("A", "x", "of A");
        device->writeData("A", "B.version", "of A");
        device->writeData("B", "x", "of B");
        QVERIFY(device->startAndSave());
        const auto comesBack = [&] {
            for (const char *item : {"x", "B.version"}) {
                device->writeData("A", item, "damaged");
            }
            device->call("startRestoreFromRepository");
            return device->readData("A", "x") == "of A" && device->readData("A", "B.version") == "of A";
        };
        device->describe("B", "<files><file>x</file></files>");
        QFile::remove(device->repositoryPath("B.version"));
        QVERIFY(QDir().mkpath(device->repositoryPath("B.version/in the way")));
        QVERIFY(device->save());
        QVERIFY(comesBack());
        QDir(device->repositoryPath("B.version")).removeRecursively();
        QVERIFY(device->save());
        QVERIFY(comesBack());
        QVERIFY(QFile::remove(device->path("etc/VYXApplication/module/B/restorable.xml")));
        QVERIFY(device->save());
        QVERIFY(comesBack());
    }

    void whatCannotBeReadTonightStays()
    {
        device->addModule("A", "<databases><database name='d'/><database name='e'/></databases>"
                               "<files><file>f</file><file>dir</file><file zip='true'>zipped</file>"
                               "<file priority='low'>low</file></files>");
        device->sql("A", "d", "CREATE TABLE t(v)");
        device->sql("A", "e", "CREATE TABLE t(v)");
        for (const char *file : {"f", "dir/one", "dir/two", "zipped/z", "low"}) {
            device->writeData("A", file, file);
        }
        QVERIFY(device->startAndSave());
        const QStringList before = device->entries();
        const QByteArray checksums = device->entry("A.cksum");
        const auto lines = device->savedLines("A");

        QFile::remove(device->dataPath("A", "d.data"));
        QVERIFY(QFile(device->dataPath("A", "e.data")).resize(1000));
        QFile::remove(device->dataPath("A", "f"));
        QDir(device->dataPath("A", "dir")).removeRecursively();
        QDir(device->dataPath("A", "zipped")).removeRecursively();
        device->call("setSaveRestoreLevel", {1}); // the low pass does not run either
        QVERIFY(saveAfterMark());
        QVERIFY(device->hasLogged("Database 'd' of module 'A' does not exist"));
        QVERIFY(device->hasLogged("Error with "));
        QCOMPARE(device->entries(), before);
        QCOMPARE(sent(), QStringList());
        QCOMPARE(device->savedLines("A"), lines);
        QCOMPARE(device->entry("A.cksum").size(), checksums.size());
    }

    void nothingOutsideOfTheDataIsSaved()
    {
        device->addModule("A", "<databases><database name='d'/></databases><files><file>f</file>"
                               "<file>dir</file><file>near</file><file zip='true'>zipped</file></files>");
        for (const char *file : {"f", "dir/one", "zipped/z", "zipped/sub [*]/out of", "real"}) {
            device->writeData("A", file, file);
        }
        device->sql("A", "d", "CREATE TABLE t(v)");
        TestDevice::shell("cd " + device->dataPath("A", "") +
                          " && chmod 640 real && ln -s real near && cd zipped && "
                          "ln -s /etc out && cd sub* && ln -s ../z in && ln -s ../../real out");
        QVERIFY(device->startAndSave());
        QCOMPARE(device->entry("near"), "real");
        const QByteArray packed = TestDevice::shell("tar -tzf " + device->repositoryPath("A++zipped.tar.gz"));
        QVERIFY(packed.contains("/in\n") && packed.contains("/out of\n") && !packed.contains("/out\n"));
        QCOMPARE(int(QFile::permissions(device->repositoryPath("near")) & 0x0ff), 0x040);
        const auto lines = device->savedLines("A");
        device->write("secret/one", "of others");
        TestDevice::sqlOnFile(device->path("secret/d.data"), "CREATE TABLE of_others(v)");
        const QString out = "ln -s ../../../secret";
        TestDevice::shell("cd " + device->dataPath("A", "") + " && rm -r f dir zipped d.data && " + out +
                          "/one f && " + out + "/d.data d.data && " + out + " dir && " + out + " zipped");
        QVERIFY(saveAfterMark());
        QCOMPARE(sent(), QStringList());
        QCOMPARE(device->savedLines("A"), lines);
        // The whole data directory is a link.
        TestDevice::shell("cd " + device->path("data/VYXApplication") +
                          " && rm -r A && ln -s ../../secret A");
        device->write("secret/f", "of others");
        QVERIFY(saveAfterMark());
        QCOMPARE(sent(), QStringList());
        QCOMPARE(device->savedLines("A"), lines);
    }

    void oddEntries()
    {
        device->addModule("A", "<files><file>My dir</file></files>");
        const QStringList names = {"it's",   "say \"x\"",       "[1]", "-rf", "$HOME", "back\\slash",
                                   "ü 日本", "a;b&c|d #1 100%", "%1"};
        for (const QString &name : names) {
            device->writeData("A", "My dir/" + name, name.toUtf8());
        }
        device->writeData("A", "My dir/two\nlines", "x");
        device->writeData("A", "My dir/.hidden", "x");
        device->writeData("A", "My dir/sub/deeper", "x");
        QCOMPARE(mkfifo(device->dataPath("A", "My dir/fifo").toUtf8().constData(), 0600), 0);
        QVERIFY(device->startAndSave());
        QCOMPARE(device->savedLines("A").size(), names.size());
        for (const QString &name : names) {
            QCOMPARE(device->savedLines("A").value("My dir/" + name).value(0), md5(name.toUtf8()));
            QCOMPARE(device->entry("My dir++" + name), name.toUtf8());
        }
        QCOMPARE(device->logged("Error with the digest of").size(), 2);
        QVERIFY(saveAfterMark());
        QCOMPARE(sent(), QStringList());
    }

    void writerKeepsWriting()
    {
        device->addModule("W", "<databases><database name='samples'/></databases>",
                          "--write-database samples");
        QVERIFY(device->start());
        const auto count = [&] {
            return device->sql("W", "samples", "SELECT count(*) FROM samples").trimmed().toInt();
        };
        QVERIFY(TestDevice::waitUntil([&] { return count() > 3; }));
        const int before = count();
        QVERIFY(device->save());
        const QString again = device->path("again.data");
        TestDevice::shell("zcat " + device->repositoryPath("W++samples.dump.gz") + " | sqlite3 " + again);
        QCOMPARE(TestDevice::sqlOnFile(again, "PRAGMA integrity_check"), "ok\n");
        QVERIFY(TestDevice::sqlOnFile(again, "SELECT count(*) FROM samples").trimmed().toInt() >= before);
        const int after = count();
        QVERIFY(TestDevice::waitUntil([&] { return count() > after; }));
    }

    void migrationPrograms()
    {
        device->write("usr/lib/VYXApplication/migration/AMigration", "#!/bin/sh\n");
        QVERIFY(saveOneFile());
        QVERIFY(device->entries().contains("AMigration"));
        QVERIFY(saveAfterMark());
        QCOMPARE(sent(), QStringList());
        device->call("setModuleRelease", {"A", "2027", "1.0"}, "ApplicationManager");
        QVERIFY(saveAfterMark());
        QVERIFY(device->hasLogged("Migration binary for module 'A' is newer: updating"));
        QCOMPARE(sent(), QStringList{"AMigration"});
        QCOMPARE(device->entry("A.version"), "2027::1.0\n");
    }

    void unknownModulesStopASave()
    {
        QVERIFY(saveOneFile());
        const QByteArray list = device->entry("modules-list.sav");
        device->call("stopModule", {"A"}, "ApplicationManager");
        QVERIFY(!saveAfterMark());
        QVERIFY(device->hasLogged("Module A seems not to be started: pid= 0"));
        QVERIFY(device->hasLogged("The modules to save are not known: abort backup operations."));
        QCOMPARE(device->entry("modules-list.sav"), list);
        QVERIFY(QFile::exists(device->path("tmp/VYXApplication/SaveRestore/Save/A.version")));
        device->call("startModule", {"A"}, "ApplicationManager");
        QVERIFY(TestDevice::waitUntil([&] { return device->save(); }));
    }

    void transfersThatFail()
    {
        device->addModule("A", "<files><file>blocked</file><file>good</file></files>");
        device->writeData("A", "blocked", "1");
        device->writeData("A", "good", "1");
        QVERIFY(device->start());
        // A directory where the entry should go.
        QVERIFY(QDir().mkpath(device->repositoryPath("blocked/x")));
        QVERIFY(device->save());
        QVERIFY(device->hasLogged("Error while uploading files"));
        QCOMPARE(device->savedLines("A").keys(), QStringList{"good"});
        QDir(device->repositoryPath("blocked")).removeRecursively();
        QVERIFY(saveAfterMark());
        QCOMPARE(sent(), QStringList{"blocked"});
        QVERIFY(!device->hasLogged("Error while uploading files"));
        QCOMPARE(device->savedLines("A").keys(), QStringList({"blocked", "good"}));
    }

    void stagingThatCannotBeUsed()
    {
        QVERIFY(saveOneFile());
        const QByteArray checksums = device->entry("A.cksum");
        const QString work = device->path("tmp/VYXApplication/SaveRestore");
        const char *const foreign = getuid() == 0 ? "mkdir Save; chown 65534 Save" : "chmod 777 .";
        for (const char *made : {"touch Save", "ln -s ../victim Save", "chmod 777 .", foreign,
                                 "cd ..; mkdir victim/Save; mv SaveRestore x; ln -s victim SaveRestore"}) {
            TestDevice::shell("cd " + work +
                              "/.. && rm -rf *; mkdir victim SaveRestore; touch victim/kept; cd " +
                              "SaveRestore; " + made);
            QVERIFY2(!saveAfterMark(), made);
            QVERIFY(device->hasLogged("Data could not be staged"));
            QCOMPARE(QDir(work + "/../victim").entryList(QDir::Files), QStringList{"kept"});
            QCOMPARE(device->entry("A.cksum"), checksums);
        }
        TestDevice::shell("cd " + work +
                          "/.. && rm SaveRestore; mkdir -p SaveRestore/Save/tree/b/c/a/b/c; cd Save*;"
                          "touch Save/tree/b/f; ln -s /etc Save/tree/l; chmod 777 Save");
        QVERIFY(saveAfterMark());
        QCOMPARE(QDir(work + "/Save").entryList({"tree", "removed*"}), QStringList());
        QCOMPARE(int(QFileInfo(work + "/Save").permissions() & 0x077), 0);
    }
};

QTEST_GUILESS_MAIN(tst_save)
#include "tst_save.moc"
