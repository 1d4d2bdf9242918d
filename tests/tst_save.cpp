#include "tests/support/OperationTest.h"

#include <unistd.h>
#include <utility>

/// Whole saves over the bus, looked at in the repository.
class tst_save : public OperationTest
{
    Q_OBJECT

    /// True when a device with one file has saved it.
    bool saveOneFile()
    {
        device->addModule("A", "<files><file>f</file></files>");
        write("A", {"f"}, "f");
        return start() && save();
    }

    /// The data that the server was sent since the last call.
    QStringList sent() const
    {
        static const QRegularExpression data("^PUT (?!modules-list|.*\\.(version|cksum|attributes)$)");
        QStringList requests = std::exchange(store->requests, {}).filter(data).replaceInStrings(data, "");
        requests.sort();
        return requests;
    }

private Q_SLOTS:
    void storyOfSaves()
    {
        const QString database = "<databases><database name='d'/></databases>";
        device->addModule("A", database +
                                   "<files><file>same.conf</file><file priority='low'>only a.txt</file>"
                                   "<file zip='true' priority='normal'>conf/logs</file>"
                                   "<file>deep/er/f</file></files>");
        device->addModule("B", database + "<files><file>other.conf</file></files>");
        device->sql("A", "d", "CREATE TABLE t(v)");
        device->sql("B", "d", "CREATE TABLE t(v)");
        write("A", {"same.conf", "only a.txt", "deep/er/f", "conf/logs/sub/1.log"}, "of A");
        write("B", {"same.conf", "other.conf"}, "of B");
        QVERIFY(start() && save());
        QCOMPARE(repository().keys(),
                 QStringList({"A++conf++logs.tar.gz", "A++d.dump.gz", "A.attributes", "A.cksum", "A.version",
                              "B++d.dump.gz", "B.attributes", "B.cksum", "B.version", "deep++er++f",
                              "modules-list.sav", "only a.txt", "other.conf", "same.conf"}));
        QVERIFY(holds("A", "same.conf", "of A") && holds("A", "only a.txt", "of A"));
        static const QRegularExpression digests("\t[0-9a-f]{32}\t");
        QCOMPARE(QString(repository()["A.cksum"]).replace(digests, "\t*\t"),
                 "A/d.data\t*\tdatabase\thigh\nsame.conf\t*\tfile\tfalse\thigh\n"
                 "deep/er/f\t*\tfile\tfalse\thigh\nA/conf/logs.tar\t*\tdirectory\t1\tnormal\n"
                 "only a.txt\t*\tfile\tfalse\tlow\n");
        sent();
        QVERIFY(save());
        QCOMPARE(store->requests.filter("DELETE"), QStringList());
        QCOMPARE(sent(), QStringList());

        // A collision appears, a file and a directory go from the description, a database changes.
        device->describe("A", database + "<files><file>same.conf</file><file>new.txt</file></files>");
        device->describe("B", database + "<files><file>same.conf</file><file>other.conf</file></files>");
        write("A", {"new.txt"}, "new");
        device->sql("A", "d", "INSERT INTO t VALUES('more')");
        QVERIFY(save());
        QCOMPARE(sent(), QStringList({"A++d.dump.gz", "A++same.conf", "B++same.conf", "new.txt"}));
        QCOMPARE(repository().keys(),
                 QStringList({"A++d.dump.gz", "A++same.conf", "A.attributes", "A.cksum", "A.version",
                              "B++d.dump.gz", "B++same.conf", "B.attributes", "B.cksum", "B.version",
                              "modules-list.sav", "new.txt", "other.conf"}));
        QCOMPARE(repository()["A++same.conf"] + repository()["B++same.conf"], "of Aof B");

        QVERIFY(device->allRun({"A", "B"}));
    }

    void modulesThatComeAndGo()
    {
        const QString description = "<files><file>x</file><file>B.version</file></files>";
        device->addModule("A", description);
        device->addModule("B", "");
        write("A", {"x", "B.version"}, "of A");
        write("B", {"x"}, "of B");
        QVERIFY(start(false) && save());
        const auto comesBack = [&] {
            write("A", {"x", "B.version"}, "damaged");
            restore();
            return device->readData("A", "x") == "of A" && device->readData("A", "B.version") == "of A";
        };
        device->describe("B", "<files><file>x</file></files>");
        QFile::remove(device->repositoryPath("B.version"));
        QVERIFY(QDir().mkpath(device->repositoryPath("B.version/in the way")));
        QVERIFY(save());
        QVERIFY(comesBack());
        QDir(device->repositoryPath("B.version")).removeRecursively();
        QVERIFY(save());
        QVERIFY(comesBack());
        QVERIFY(QFile::remove(device->path("etc/VYXApplication/module/B/restorable.xml")));
        QVERIFY(save());
        QVERIFY(comesBack());
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
        QVERIFY(start(false) && save());
        QCOMPARE(repository()["near"], "real");
        const QByteArray packed = TestDevice::shell("tar -tzf " + device->repositoryPath("A++zipped.tar.gz"));
        QVERIFY(packed.contains("/in\n") && packed.contains("/out of\n") && !packed.contains("/out\n"));
        QCOMPARE(int(QFile::permissions(device->repositoryPath("near")) & 0x0ff), 0x040);
        const auto lines = [this] {
            QByteArrayList sorted = repository()["A.cksum"].split('\n');
            std::sort(sorted.begin(), sorted.end());
            return sorted;
        };
        const QByteArrayList saved = lines();
        const Entries entries = repository();
        device->write("secret/one", "of others");
        TestDevice::sqlOnFile(device->path("secret/d.data"), "CREATE TABLE of_others(v)");
        const QString out = "ln -s ../../../secret";
        TestDevice::shell("cd " + device->dataPath("A", "") + " && rm -r f dir zipped d.data && " + out +
                          "/one f && " + out + "/d.data d.data && " + out + " dir && " + out + " zipped");
        QVERIFY(save());
        QCOMPARE(lines(), saved);
        QCOMPARE(repository()["near"], entries["near"]);
        // The whole data directory is a link.
        TestDevice::shell("cd " + device->path("data/VYXApplication") +
                          " && rm -r A && ln -s ../../secret A");
        device->write("secret/f", "of others");
        QVERIFY(save());
        QCOMPARE(lines(), saved);
        QCOMPARE(repository()["near"], entries["near"]);
    }

    void whatCannotBeReadTonightStays()
    {
        device->addModule("A", "<databases><database name='d'/><database name='e'/></databases>"
                               "<files><file>f</file><file>dir</file><file zip='true'>zipped</file>"
                               "<file priority='low'>low</file></files>");
        device->sql("A", "d", "CREATE TABLE t(v)");
        device->sql("A", "e", "CREATE TABLE t(v)");
        write("A", {"f", "dir/one", "dir/two", "zipped/z", "low"}, "content");
        QVERIFY(start() && save());
        const auto sorted = [](Entries entries) {
            QByteArrayList lines = entries["A.cksum"].split('\n');
            std::sort(lines.begin(), lines.end());
            entries["A.cksum"] = lines.join('\n');
            return entries;
        };
        const Entries before = sorted(repository());
        QVERIFY(QFile(device->dataPath("A", "e.data")).resize(1000));
        TestDevice::shell("cd '" + device->dataPath("A", "") + "' && rm -r d.data f dir zipped");
        device->call("setSaveRestoreLevel", {1}); // the low pass does not run either
        sent();
        QVERIFY(save());
        QCOMPARE(sent(), QStringList());
        QCOMPARE(sorted(repository()), before);
    }

    void oddEntries()
    {
        device->addModule("A", "<files><file>My dir</file></files>");
        const QStringList names = {"it's",   "say \"x\"",       "[1]", "-rf", "$HOME", "back\\slash",
                                   "ü 日本", "a;b&c|d #1 100%", "%1"};
        for (const QString &name : names) {
            write("A", {"My dir/" + name}, name.toUtf8());
        }
        write("A", {"My dir/two\nlines", "My dir/.hidden"}, "x");
        device->addModule("B", "<files><file>a</file><file>a++x</file></files>");
        write("B", {"a/x"}, "slash");
        write("B", {"a++x"}, "plus");
        QVERIFY(start() && save());
        QCOMPARE(repository()["B++a++x%"] + repository()["B++a%2B%2Bx%"], "slashplus");
        for (const QString &name : names) {
            QCOMPARE(repository().value("My dir++" + name), name.toUtf8());
            QCOMPARE(digest("A", "My dir/" + name), md5(name.toUtf8()));
        }
        sent();
        QVERIFY(save());
        QCOMPARE(sent(), QStringList());
    }

    /// On a device that has lost all of them, and over files that are open to everybody.
    void attributesComeBack()
    {
        const bool root = getuid() == 0;
        device->addModule("A", "<files><file>f</file><file>g</file></files>");
        write("A", {"f", "g"}, "x");
        device->addModule("B", "<databases><database name='d'/></databases>");
        device->sql("B", "d", "CREATE TABLE t(v)");
        const QStringList paths = {device->dataPath("A", "f"), device->dataPath("A", "g"),
                                   device->dataPath("B", "d.data")};
        const QString files = paths.join("' '");
        const auto status = [&] { return TestDevice::shell("stat -c '%a %U %G %y' '" + files + "'"); };
        TestDevice::shell("chmod 600 '" + files + "'; touch -d '2001-02-03 04:05:06.123456789' '" + files +
                          "'; chmod 711 '" + paths.at(1) + (root ? "'; chown daemon:bin '" : "' '") + files +
                          "'");
        const QByteArray saved = status();
        QVERIFY(start() && save());
        for (const int mode : {0, 666, 4777}) {
            // A live database keeps its own.
            TestDevice::shell(mode == 0 ? "rm '" + files + "'"
                                        : QString("chmod %1 '%2'; echo other | tee '%3'")
                                              .arg(mode)
                                              .arg(files, paths.mid(0, 2).join("' '")));
            restore();
            QCOMPARE(status().split('\n').mid(0, mode == 0 ? 3 : 2),
                     saved.split('\n').mid(0, mode == 0 ? 3 : 2));
        }
        sent();
        QVERIFY(save());
        QVERIFY(store->requests.filter("PUT A.attributes").isEmpty());
        treated = {{"GET A.attributes", StoreServer::Fail}};
        write("A", {"f"}, "other");
        restore();
        QCOMPARE(device->readData("A", "f"), "other");
    }

    void unknownModulesStopASave()
    {
        QVERIFY(saveOneFile());
        const Entries before = repository();
        device->call("stopModule", {"A"}, "ApplicationManager");
        QVERIFY(!save());
        QVERIFY(isShown("The modules to save are not known: abort backup operations."));
        QCOMPARE(repository(), before);
    }

    void stagingThatCannotBeUsed()
    {
        QVERIFY(saveOneFile());
        const Entries before = repository();
        const QString work = device->path("tmp/VYXApplication/SaveRestore");
        const char *const foreign = getuid() == 0 ? "mkdir Save; chown 65534 Save" : "chmod 777 .";
        for (const char *made : {"touch Save", "ln -s ../victim Save", "chmod 777 .", foreign,
                                 "cd ..; mkdir victim/Save; mv SaveRestore x; ln -s victim SaveRestore"}) {
            TestDevice::shell("cd " + work +
                              "/.. && rm -rf *; mkdir victim SaveRestore; touch victim/kept; cd " +
                              "SaveRestore; " + made);
            QVERIFY2(!save(), made);
            QCOMPARE(QDir(work + "/../victim").entryList(QDir::Files), QStringList{"kept"});
            QCOMPARE(repository(), before);
        }
        TestDevice::shell("cd " + work +
                          "/.. && rm SaveRestore; mkdir -p SaveRestore/Save/tree/b/c/a/b/c; cd Save*;"
                          "touch Save/tree/b/f; ln -s /etc Save/tree/l; chmod 777 Save");
        QVERIFY(save());
        QCOMPARE(QDir(work + "/Save").entryList({"tree", "removed*"}), QStringList());
        QCOMPARE(int(QFileInfo(work + "/Save").permissions() & 0x077), 0);
    }
};

QTEST_GUILESS_MAIN(tst_save)
#include "tst_save.moc"
