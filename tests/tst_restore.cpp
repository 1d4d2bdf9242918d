#include "tests/support/NginxServer.h"
#include "tests/support/OperationTest.h"

#include <QThread>

/// Whole restores over the bus: what was saved comes back, and what cannot be restored stays as it was.
class tst_restore : public OperationTest
{
    Q_OBJECT

    const QString everyKind =
        "<databases><database name='whole'/><database name='part.v1'>"
        "<sql-command table-name='kept'>SELECT * FROM kept</sql-command></database></databases>"
        "<files><file>f.txt</file><file priority='low'>conf/deep/odd ü [1].ini</file>"
        "<file zip='true'>zipped</file><file zip='true' priority='normal'>a/zipped.d</file>"
        "<file priority='normal'>plain dir</file><file>p</file><file>p++q</file></files>";

    void addModule(const QString &name)
    {
        device->addModule(name, everyKind);
        device->sql(name, "whole",
                    "CREATE TABLE t(v); INSERT INTO t VALUES('" + name +
                        "'), ('it''s\nü'); PRAGMA user_version=3;");
        device->sql(name, "part.v1",
                    "CREATE TABLE kept(id INTEGER PRIMARY KEY, v); CREATE TABLE own(v);"
                    "INSERT INTO kept VALUES(1, 'a'), (2, 'b'); INSERT INTO own VALUES('own');");
        for (const char *file : {"f.txt", "conf/deep/odd ü [1].ini", "zipped/sub/z 'q'", "a/zipped.d/y",
                                 "plain dir/say \"x\" 100%", "plain dir/-rf", "plain dir/$HOME %1",
                                 "plain dir/back\\slash", "plain dir/a;b&c|d #1", "p/q", "p++q"}) {
            device->writeData(name, file, name.toUtf8() + file);
        }
    }

    /// What a module holds, as text.
    QByteArray state(const QString &module) const
    {
        const QString printFiles =
            "find . -type f ! -name '*.data*' | sort | xargs -r -d '\\n' tail -v -n +1";
        return device->sql(module, "whole", "SELECT quote(v) FROM t ORDER BY 1; PRAGMA user_version;") +
               device->sql(module, "part.v1", "SELECT * FROM kept ORDER BY id; SELECT v FROM own;") +
               TestDevice::shell("cd '" + device->dataPath(module, "") + "' && " + printFiles);
    }

    void damage(const QString &module) const
    {
        TestDevice::shell(
            "cd '" + device->dataPath(module, "") +
            "' && rm -r whole.data conf zipped 'plain dir'; printf changed | tee f.txt > a/zipped.d/y");
        device->sql(module, "part.v1", "DELETE FROM kept WHERE id=1; UPDATE kept SET v='changed';");
    }

    bool nothingLeftBehind() const
    {
        return TestDevice::shell("find '" + device->path("data") + "' -name '.saverestore*'").isEmpty();
    }

    /// The exit status of the command.
    int statusOfVerify() const
    {
        QProcess verify;
        verify.start("/usr/bin/env", {"DBUS_SYSTEM_BUS_ADDRESS=unix:path=" + device->path("bus"),
                                      QString(PROGRAMS) + "/saverestorectl", "verify"});
        return verify.waitForFinished() ? verify.exitCode() : -1;
    }

private Q_SLOTS:
    void init()
    {
        startAfresh();
        previewed = Previewed::Exactly;
        addModule("A");
    }

    void everythingComesBack_data()
    {
        columns<bool>("secure");
        row("directory", false);
        row("secure server", true);
    }
    void everythingComesBack()
    {
        QFETCH(bool, secure);
        const NginxServer nginx(secure ? "server" : "");
        if (secure) {
            QFile::remove(device->path("data/dev_mode"));
            NginxServer::installTool(device->path(""));
            device->writeSettings("2", nginx.url());
        }
        addModule("B"); // every name collides with A's
        QVERIFY(device->startAndSave());
        const QByteArray a = state("A");
        const QByteArray b = state("B");
        damage("A");
        write("B", {"f.txt"}, "changed");
        restore();
        QCOMPARE(state("A"), a);
        QCOMPARE(state("B"), b);

        const QFileInfo untouched(device->dataPath("A", "f.txt"));
        const QDateTime before = untouched.lastModified();
        damage("B");
        restore();
        QCOMPARE(state("B"), b);
        QCOMPARE(QFileInfo(untouched.filePath()).lastModified(), before);
        QVERIFY(nothingLeftBehind());
    }

    /// What was put back is what was saved: it is neither put back nor sent again.
    void restoredOnce()
    {
        QVERIFY(device->startAndSave());
        damage("A");
        restore();
        QThread::sleep(4);
        if (!QFile::exists(device->path("data/VYXApplication/VYXSaveRestore/digests"))) {
            QSKIP("the time stamps of this file system do not tell enough");
        }
        const QByteArray stamps = "stat -c '%i %z' whole.data f.txt zipped/sub/*; stat -c %z";
        const QString look = "cd '" + device->dataPath("A", "") + "'; " + stamps + " '" +
                             device->repositoryPath("A++whole.dump.gz") + "'";
        const QByteArray before = TestDevice::shell(look);
        QVERIFY(before.count('\n') == 4);
        restore();
        QVERIFY(device->save());
        QCOMPARE(TestDevice::shell(look), before);
    }

    void partOfTheData()
    {
        addModule("OnlyHere");
        QVERIFY(device->startAndSave());
        damage("A");
        device->call("setSaveRestorePriority", {false, true, false});
        restore();
        QVERIFY(!QFile::exists(device->dataPath("A", "whole.data")));
        QCOMPARE(device->readData("A", "f.txt"), "changed");
        QCOMPARE(device->readData("A", "a/zipped.d/y"), "Aa/zipped.d/y");
        QVERIFY(!QFile::exists(device->dataPath("A", "conf/deep")));

        // A module of the list that this device does not have, and one of the device that is not on the list.
        device->write("media/repository/modules-list.sav", "Elsewhere\nA\n");
        device->call("setSaveRestoreLevel", {2});
        damage("A");
        QFile::remove(device->dataPath("A", "part.v1.data"));
        restore();
        QCOMPARE(device->sql("A", "whole", "SELECT count(*) FROM t"), "2\n");
        QCOMPARE(device->readData("A", "a/zipped.d/y"), "Aa/zipped.d/y");
        QVERIFY(!QFile::exists(device->dataPath("A", "part.v1.data"))); // rows alone make no database
    }

    void migration()
    {
        device->write("usr/lib/VYXApplication/migration/AMigration",
                      "#!/bin/sh\necho \"$@\" >> '" + device->path("migrated").toUtf8() + "'\n");
        TestDevice::shell("chmod +x " + device->path("usr/lib/VYXApplication/migration/AMigration"));
        QVERIFY(device->startAndSave());
        restore();
        QVERIFY(!QFile::exists(device->path("migrated")));
        device->call("setModuleRelease", {"A", "2027", "1.0"}, "ApplicationManager");
        restore();
        QVERIFY(TestDevice::waitUntil([&] { return readFile(device->path("migrated")) == "A 2026 2026\n"; }));
        QVERIFY(!QFile::exists(device->path("tmp/VYXApplication/SaveRestore/Restore/AMigration")));
    }

    /// A repository of a later service is left alone by all operations, and so are the data.
    void format_data()
    {
        columns<QString, bool>("made", "known");
        row("of an older service", "rm $f", true);
        row("lost in a crash", ": >$f", true);
        row("the same", ":", true);
        row("of a later service", "echo 2 >$f", false);
        row("not understood", "echo 1 and more >$f", false);
    }
    void format()
    {
        QFETCH(QString, made);
        QFETCH(bool, known);
        QVERIFY(start(false) && save());
        TestDevice::shell("cd '" + device->repositoryPath() + "'; f=.saverestore-format; " + made);
        write("A", {"f.txt"}, "changed");
        const Entries before = repository();
        const auto isRefused = [&](const QString &operation) {
            return isShown("The repository is of a newer format than this service knows: abort " + operation +
                           " operations.");
        };
        device->markLog();
        restore();
        QCOMPARE(isRefused("restore"), !known);
        QCOMPARE(device->readData("A", "f.txt"), known ? "Af.txt" : "changed");
        write("A", {"f.txt"}, "new");
        QCOMPARE(save(), known);
        QCOMPARE(isRefused("backup"), !known);
        QCOMPARE(statusOfVerify(), known ? 0 : 28);
        QCOMPARE(repository() == before, !known);
        QVERIFY(!known || (holds("A", "f.txt", "new") && repository()[".saverestore-format"] == "1\n"));
        // One each of the preview and the dry run before the restore, the restore, the save and the verify.
        QCOMPARE(device->wholeLog().count("error VYX"), known ? 0 : 5);
    }

    /// A dump, an archive and a file that cannot be used: they stay as they were, everything else comes back.
    void faultyRepository_data()
    {
        columns<QString>("fault");
        row("missing", "rm $d $a f.txt");
        row("cut off", "for e in $d $a; do head -c 60 $e > x; mv x $e; done; : > f.txt");
    }
    void faultyRepository()
    {
        QFETCH(QString, fault);
        QVERIFY(device->startAndSave());
        const QByteArray saved = state("A");
        damage("A");
        device->sql("A", "whole", "CREATE TABLE t(v); INSERT INTO t VALUES('damaged')");
        TestDevice::shell("cd '" + device->repositoryPath() +
                          "'; d=A++whole.dump.gz a=A++a++zipped.d.tar.gz; " + fault);
        previewed = fault.startsWith("rm") ? Previewed::Exactly : Previewed::ButForDamage;
        restore();
        QCOMPARE(device->sql("A", "whole", "SELECT v FROM t"), "damaged\n");
        device->sql("A", "whole",
                    "DELETE FROM t; INSERT INTO t VALUES('A'), ('it''s\nü'); PRAGMA user_version=3;");
        for (const QString item : {"a/zipped.d/y", "f.txt"}) {
            QCOMPARE(device->readData("A", item), "changed");
            write("A", {item}, "A" + item.toUtf8());
        }
        QCOMPARE(state("A"), saved);
        QVERIFY(nothingLeftBehind() && device->allRun({"A"}));
    }
};

QTEST_GUILESS_MAIN(tst_restore)
#include "tst_restore.moc"
