#include "tests/support/OperationTest.h"

#include <algorithm>
#include <unistd.h>
#include <utility>

/// Whole saves over the bus: what the repository holds, after those too that went partly wrong, and what
/// comes back.
class tst_save : public OperationTest
{
    Q_OBJECT

    /// The data that the server was sent since the last call.
    QStringList sent() const
    {
        static const QRegularExpression data(
            "^PUT (?!modules-list|.saverestore-format|.*\\.(version|cksum|attributes)$)");
        QStringList requests = std::exchange(store->requests, {}).filter(data).replaceInStrings(data, "");
        requests.sort();
        return requests;
    }

    const QStringList items = {"x",     "bad/x",  "bad/y", "z/file",
                               "fresh", "../B/b", "../C/x"}; ///< as A sees them
    const QString filesOfA = "<file>x</file><file>bad</file><file zip='true'>z</file>";

    void describe(const QString &module, const QString &files)
    {
        device->describe(module, "<databases><database name='d'/></databases><files>" + files + "</files>");
    }

    void addModule(const QString &module, const QString &files)
    {
        device->addModule(module, {});
        describe(module, files);
    }

    void change(const QByteArray &content) const
    {
        write("A", items, content);
        device->sql("A", "d", "DROP TABLE IF EXISTS t; CREATE TABLE t AS SELECT '" + content + "'");
    }

    /// What a restore brings back, "item=content" each, without the items of this content.
    QString restoredExcept(const QByteArray &content)
    {
        change("damaged");
        restore();
        QStringList others = {"d=" + device->sql("A", "d", "SELECT * FROM t").trimmed()};
        for (const QString &item : items) {
            others << item + "=" + device->readData("A", item);
        }
        return others.filter(QRegularExpression("=(?!" + content + "$)")).join(' ');
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
                 QStringList({".saverestore-format", "A++conf++logs.tar.gz", "A++d.dump.gz", "A.attributes",
                              "A.cksum", "A.version", "B++d.dump.gz", "B.attributes", "B.cksum", "B.version",
                              "deep++er++f", "modules-list.sav", "only a.txt", "other.conf", "same.conf"}));
        QVERIFY(holds("A", "same.conf", "of A") && holds("A", "only a.txt", "of A"));
        static const QRegularExpression digests("\t[0-9a-f]{32}\t");
        QCOMPARE(QString(repository()["A.cksum"]).replace(digests, "\t*\t"),
                 "A/d.data\t*\tdatabase\thigh\nsame.conf\t*\tfile\tfalse\thigh\n"
                 "deep/er/f\t*\tfile\tfalse\thigh\nA/conf/logs.tar\t*\tdirectory\t1\tnormal\n"
                 "only a.txt\t*\tfile\tfalse\tlow\n");
        sent();
        QVERIFY(save());
        QCOMPARE(store->requests.filter(QRegularExpression("PUT|DELETE")), QStringList());
        sent();

        // A collision appears, a file and a directory go from the description, a database changes.
        device->describe("A", database + "<files><file>same.conf</file><file>new.txt</file></files>");
        device->describe("B", database + "<files><file>same.conf</file><file>other.conf</file></files>");
        write("A", {"new.txt"}, "new");
        device->sql("A", "d", "INSERT INTO t VALUES('more')");
        QVERIFY(save());
        QCOMPARE(sent(), QStringList({"A++d.dump.gz", "A++same.conf", "B++same.conf", "new.txt"}));
        QCOMPARE(repository().keys(),
                 QStringList({".saverestore-format", "A++d.dump.gz", "A++same.conf", "A.attributes",
                              "A.cksum", "A.version", "B++d.dump.gz", "B++same.conf", "B.attributes",
                              "B.cksum", "B.version", "modules-list.sav", "new.txt", "other.conf"}));
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

    /// What leads out of a module's data, is missing or cannot be read tonight keeps its last good copy.
    void whatCannotBeSavedStays()
    {
        device->addModule("A", "<databases><database name='d'/><database name='e'/></databases><files>"
                               "<file>f</file><file>dir</file><file>near</file>"
                               "<file zip='true'>zipped</file><file priority='low'>low</file></files>");
        write("A",
              {"f", "dir/one", "dir/it's [%1] #1 ü", "dir/two\nlines", "zipped/z", "zipped/sub [*]/out of",
               "real", "low"},
              "content");
        device->sql("A", "d", "CREATE TABLE t(v)");
        device->sql("A", "e", "CREATE TABLE t(v)");
        const auto changeData = [this](const QString &change) {
            TestDevice::shell("cd '" + device->dataPath("A", "") + "' && " + change);
        };
        changeData("ln -s real near; cd zipped; echo >.saverestore-aside.x; ln -s /etc out; cd sub*; ln -s "
                   "../z in; ln -s ../../real out");
        QVERIFY(start() && save());
        QCOMPARE(repository()["near"], "content");
        QCOMPARE(QStringList(repository().keys()).filter("dir").size(), 2);
        device->write("archive", repository()["A++zipped.tar.gz"]);
        const QByteArray packed = TestDevice::shell("tar -tzf " + device->path("archive"));
        QVERIFY(packed.contains("/in\n") && packed.contains("/out of\n"));
        QVERIFY(!packed.contains("/out\n") && !packed.contains("saverestore"));
        const auto sortedEntries = [this] {
            Entries entries = repository();
            QByteArrayList lines = entries["A.cksum"].split('\n');
            std::sort(lines.begin(), lines.end());
            entries["A.cksum"] = lines.join('\n');
            return entries;
        };
        const Entries before = sortedEntries();
        device->write("secret/f", "of others");
        TestDevice::sqlOnFile(device->path("secret/d.data"), "CREATE TABLE of_others(v)");
        device->call("setSaveRestoreLevel", {1}); // the low pass does not run either
        sent();
        for (const char *change : {"rm -r d.data f dir zipped; truncate -s 1000 e.data",
                                   "for e in d.data f; do ln -s ../../../secret/$e $e; done; "
                                   "for d in dir zipped; do ln -s ../../../secret $d; done",
                                   "cd ..; rm -r A; ln -s ../../secret A"}) {
            changeData(change);
            QVERIFY(save());
            QCOMPARE(sent(), QStringList());
            QCOMPARE(sortedEntries(), before);
        }
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

    void savesThatCannotBegin()
    {
        device->addModule("A", "<files><file>f</file></files>");
        write("A", {"f"}, "f");
        QVERIFY(start() && save());
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

        device->call("stopModule", {"A"}, "ApplicationManager");
        QVERIFY(!save());
        QVERIFY(isShown("The modules to save are not known: abort backup operations."));
        QCOMPARE(repository(), before);
    }

    /// Some requests of a save are refused: no line promises what its entry does not hold, everything else is
    /// complete, and the next save and restore bring all of it.
    void requestsThatAreRefused_data()
    {
        // what a restore brings back instead of the new, and what the pop-up says
        columns<QStringList, int, QString, QString>("requests", "status", "others", "detail");
        const QString others = "bad/x=old bad/y=old z/file=old fresh=damaged";
        const QString old = "d=old x=old " + others + " ../C/x=damaged";
        const QString all = "d=old x=old " + others + " ../B/b=old ../C/x=damaged";
        row("files", QStringList{"PUT bad++x", "PUT bad++y"}, 503, "bad/x=old bad/y=old", "^2 .*'bad/x'");
        row("file, never there", QStringList{"PUT fresh"}, 503, "fresh=damaged", "^1 .*'fresh'");
        row("database and archive", QStringList{"PUT A++d.dump.gz", "PUT A++z.tar.gz"}, 503,
            "d=old z/file=old", "^2 .*'A/d.data'");
        row("entry of a new name", QStringList{"PUT A++x"}, 503, "x=old ../C/x=damaged", "'x'");
        row("migration program", QStringList{"PUT AMigration"}, 413,
            QString("d=old x=old " + others).replace("old", "damaged"), "'AMigration'");
        row("held lines", QStringList{"PUT A.cksum"}, 507, old, "'A.cksum'");
        row("modules list", QStringList{"PUT modules-list.sav"}, 503, "", "'modules-list.sav'");
        row("a module's state", QStringList{"GET A.cksum"}, 503, old, "'A.cksum'");
        row("format", QStringList{"PUT .saverestore-format"}, 503, "", "'.saverestore-format'");
        row("the format", QStringList{"GET .saverestore-format"}, 503, all, "'.saverestore-format'");
        row("the modules", QStringList{"GET modules-list.sav"}, 503, all, "'modules-list.sav'");
        row("the repository", QStringList{"GET "}, 503, all, "");
    }
    void requestsThatAreRefused()
    {
        QFETCH(QStringList, requests);
        QFETCH(int, status);
        QFETCH(QString, others);
        QFETCH(QString, detail);
        addModule("A", filesOfA + "<file>gone</file>");
        addModule("B", "<file>b</file>");
        addModule("C", {});
        write("A", {"gone"}, "old");
        const QString program = "usr/lib/VYXApplication/migration/AMigration";
        device->write(program, "program");
        change("old");
        QVERIFY(start() && save() && popUps.isEmpty());
        // What promises is sent last.
        const QStringList sent = store->requests.filter("PUT ");
        const auto promises = [](const QString &request) {
            return request.endsWith(".version") || request.endsWith("modules-list.sav") ||
                   request.endsWith("-format");
        };
        QCOMPARE(std::count_if(sent.cbegin(), sent.cend(), promises), 5);
        QVERIFY2(std::is_partitioned(sent.cbegin(), sent.cend(), std::not_fn(promises)),
                 qPrintable(sent.join(", ")));

        store->entries.remove(".saverestore-format"); // as an older service leaves it
        store->entries["modules-list.sav"].chop(1);   // the same modules in other words, so that it is sent
        device->call("setModuleRelease", {"A", "2027", "1.0"}, "ApplicationManager");
        device->write(program, "later program");
        describe("A", filesOfA + "<file>fresh</file>");
        describe("C", "<file>x</file>"); // a name that A has
        change("new");
        store->failStatus = status;
        for (const QString &request : requests) {
            treated.insert(request, StoreServer::Fail);
        }
        QCOMPARE(save(), requests != QStringList{"GET "});
        treated.clear();
        QVERIFY(isShown(
            detail.isEmpty() ? "Connection to repository failed." : "Error while uploading files.", detail));
        QCOMPARE(restoredExcept("new"), others);

        change("newer");
        QVERIFY(save() && popUps.isEmpty());
        QCOMPARE(store->entries.value("AMigration"), "later program");
        QCOMPARE(store->entries.value("A.version"), "2027::1.0\n");
        QVERIFY(!store->entries.contains("gone"));
        QCOMPARE(restoredExcept("newer"), "");
    }

    void listedModulesAreTheDescribedOnes()
    {
        for (const QString module : {"A", "B"}) {
            addModule(module, "<file>" + module + "</file>");
            write(module, {module}, "old");
        }
        QVERIFY(start(false) && save());
        device->call("stopModule", {"B"}, "ApplicationManager");
        write("A", {"A"}, "new");
        QVERIFY(save());
        QVERIFY(holds("A", "A", "new"));
        QCOMPARE(repository()["modules-list.sav"], "A\nB\n");
        // No module runs when the service starts.
        QCOMPARE(device->stopService(), 0);
        device->call("stopModule", {"A"}, "ApplicationManager");
        QVERIFY(device->startService("FastService"));
        save();
        QCOMPARE(repository()["modules-list.sav"], "A\nB\n");
        for (const QString module : {"A", "B"}) {
            device->call("startModule", {module}, "ApplicationManager");
            QVERIFY(device->waitForName(module));
            write(module, {module}, "damaged");
        }
        restore();
        QCOMPARE(device->readData("A", "A") + device->readData("B", "B"), "newold");
        QVERIFY(QFile::remove(device->path("etc/VYXApplication/module/B/restorable.xml")));
        QVERIFY(save());
        QCOMPARE(repository()["modules-list.sav"], "A\n");
    }

    void fileThatChangesOnTheWay_data()
    {
        columns<bool>("server");
        row("server", true);
        row("directory", false);
    }
    void fileThatChangesOnTheWay()
    {
        QFETCH(bool, server);
        device->addModule("A", "<files><file>f</file></files>");
        write("A", {"f"}, "old");
        device->addModule("Slow", "<databases><database name='d'/></databases>", "--pause-delay 300");
        device->sql("Slow", "d", "CREATE TABLE t(v)");
        QVERIFY(start(server));
        const QDBusPendingCall call = device->callLater("startSaveOnRepository");
        QVERIFY(device->waitForLog("restoring data: Slow:")); // A's digests have been taken
        write("A", {"f"}, QByteArray(100000, 'n'));
        QVERIFY(end(call).toBool());
        QVERIFY(holds("A", "f", QByteArray(100000, 'n')));
    }
};

QTEST_GUILESS_MAIN(tst_save)
#include "tst_save.moc"
