#include "tests/support/DataTable.h"
#include "tests/support/TestDevice.h"

#include <QCryptographicHash>

#include <csignal>

namespace {

QString md5(const QByteArray &content)
{
    return QString::fromLatin1(QCryptographicHash::hash(content, QCryptographicHash::Md5).toHex());
}

} // namespace

/// Whole restores over the bus: what was saved comes back, and what cannot be restored stays as it was.
class tst_restore : public QObject
{
    Q_OBJECT

    std::unique_ptr<TestDevice> device;

    const QString everyKind =
        "<databases><database name='whole'/><database name='part.v1'>"
        "<sql-command table-name='kept'>SELECT * FROM kept</sql-command></database></databases>"
        "<files><file>f.txt</file><file priority='low'>conf/deep/odd ü [1].ini</file>"
        "<file zip='true'>zipped</file><file zip='true' priority='normal'>a/zipped.d</file>"
        "<file priority='normal'>plain dir</file></files>";

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
                                 "plain dir/say \"x\" 100%"}) {
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
        QFile::remove(device->dataPath(module, "whole.data"));
        device->sql(module, "part.v1", "DELETE FROM kept WHERE id=1; UPDATE kept SET v='changed';");
        device->writeData(module, "f.txt", "changed");
        QDir(device->dataPath(module, "conf")).removeRecursively();
        QDir(device->dataPath(module, "zipped")).removeRecursively();
        device->writeData(module, "a/zipped.d/y", "changed");
        QDir(device->dataPath(module, "plain dir")).removeRecursively();
    }

    bool restore() const
    {
        return device->call("startRestoreFromRepository").type() == QDBusMessage::ReplyMessage;
    }

    bool nothingLeftBehind() const
    {
        return TestDevice::shell("find '" + device->path("data") + "' -name '.saverestore*'").isEmpty();
    }

private Q_SLOTS:
    void init()
    {
        device = std::make_unique<TestDevice>();
        addModule("A");
    }
    void cleanup() { QCOMPARE(TestDevice::retire(device), QString()); }

    void everythingComesBack()
    {
        addModule("B"); // every name collides with A's
        QVERIFY(device->startAndSave());
        const QByteArray a = state("A");
        const QByteArray b = state("B");
        damage("A");
        device->writeData("B", "f.txt", "changed");
        QVERIFY(restore());
        QCOMPARE(state("A"), a);
        QCOMPARE(state("B"), b);

        const QFileInfo untouched(device->dataPath("A", "f.txt"));
        const QDateTime before = untouched.lastModified();
        damage("B");
        QVERIFY(restore());
        QCOMPARE(state("B"), b);
        QCOMPARE(QFileInfo(untouched.filePath()).lastModified(), before);
        QVERIFY(nothingLeftBehind());
    }

    void priorityThatIsOff()
    {
        QVERIFY(device->startAndSave());
        damage("A");
        device->call("setSaveRestorePriority", {false, true, false});
        QVERIFY(restore());
        QVERIFY(!QFile::exists(device->dataPath("A", "whole.data")));
        QCOMPARE(device->readData("A", "f.txt"), "changed");
        QCOMPARE(device->readData("A", "a/zipped.d/y"), "Aa/zipped.d/y");
        QVERIFY(!QFile::exists(device->dataPath("A", "conf/deep")));
    }

    void modulesThatAreNotOnBothSides()
    {
        addModule("OnlyHere");
        QVERIFY(device->startAndSave());
        // A module of the list that this device does not have, and one of the device that is not on the list.
        device->write("media/repository/modules-list.sav", "Elsewhere\nA\n");
        damage("A");
        QVERIFY(restore());
        QCOMPARE(device->sql("A", "whole", "SELECT count(*) FROM t"), "2\n"); // high priority, too
        QCOMPARE(device->readData("A", "a/zipped.d/y"), "Aa/zipped.d/y");
    }

    void migration()
    {
        device->write("usr/lib/VYXApplication/migration/AMigration",
                      "#!/bin/sh\necho \"$@\" >> '" + device->path("migrated").toUtf8() + "'\n");
        TestDevice::shell("chmod +x " + device->path("usr/lib/VYXApplication/migration/AMigration"));
        QVERIFY(device->startAndSave());
        QVERIFY(restore());
        QVERIFY(!QFile::exists(device->path("migrated")));
        device->call("setModuleRelease", {"A", "2027", "1.0"}, "ApplicationManager");
        QVERIFY(restore());
        QVERIFY(TestDevice::waitUntil([&] { return device->read("migrated") == "A 2026 2026\n"; }));
        QVERIFY(!QFile::exists(device->path("tmp/VYXApplication/SaveRestore/Restore/AMigration")));
    }

    void faultyRepositories_data()
    {
        columns<QString, QString>("fault", "item"); // run in the repository, and what it hits
        row("dump missing", "rm A++whole.dump.gz", "whole");
        row("dump truncated", "head -c 60 A++whole.dump.gz > x; mv x A++whole.dump.gz", "whole");
        row("dump without its end",
            "zcat A++whole.dump.gz | grep -v COMMIT | gzip > x; mv x A++whole.dump.gz", "whole");
        row("dump is no SQL", "(echo hello; echo 'COMMIT;') | gzip > A++whole.dump.gz", "whole");
        row("archive missing", "rm A++a++zipped.d.tar.gz", "a/zipped.d/y");
        row("archive truncated", "head -c 60 A++a++zipped.d.tar.gz > x; mv x A++a++zipped.d.tar.gz",
            "a/zipped.d/y");
        row("archive leads out",
            "mkdir w; tar -xzf A++a++zipped.d.tar.gz -C w; touch $(find w -name zipped.d)side;"
            "tar -czf A++a++zipped.d.tar.gz -C w $(cd w && find * -type f); rm -r w",
            "a/zipped.d/y");
        row("file missing", "rm f.txt", "f.txt");
        row("file cut off", ": > f.txt", "f.txt");
        row("another's content", "cp A.version f.txt", "f.txt");
    }
    void faultyRepositories()
    {
        QFETCH(QString, fault);
        QFETCH(QString, item);
        QVERIFY(device->startAndSave());
        const QByteArray saved = state("A");
        damage("A");
        device->sql("A", "whole", "CREATE TABLE t(v); INSERT INTO t VALUES('damaged')");
        TestDevice::shell("cd '" + device->repositoryPath() + "' && { " + fault + "; }");
        QVERIFY(restore());
        if (item == "whole") {
            QCOMPARE(device->sql("A", "whole", "SELECT v FROM t"), "damaged\n");
            device->sql("A", "whole",
                        "DELETE FROM t; INSERT INTO t VALUES('A'), ('it''s\nü'); PRAGMA user_version=3;");
        } else {
            QCOMPARE(device->readData("A", item), "changed");
            device->writeData("A", item, "A" + item.toUtf8());
        }
        QCOMPARE(state("A"), saved); // everything else came back
        QVERIFY(nothingLeftBehind());
        QVERIFY(device->allRun({"A"}));
    }

    void hostileRepository()
    {
        QVERIFY(device->startAndSave());
        const QByteArray saved = state("A");
        damage("A");
        const QString digest(32, '0');
        QString lines;
        for (const QString &key :
             {QString("../B/f"), QString("/etc/x"), QString("a/../../f"), device->path("stolen")}) {
            lines += key + "\t" + digest + "\tfile\tfalse\thigh\n";
        }
        lines += "backup.tar\t" + md5("just a file") + "\tfile\tfalse\thigh\n";
        lines +=
            "B/whole.data\t" + digest + "\tdatabase\thigh\nA/../x.data\t" + digest + "\tdatabase\thigh\n";
        lines += "A/../../etc.tar\t" + digest + "\tdirectory\t1\thigh\n";
        device->write("media/repository/A.cksum", device->entry("A.cksum") + lines.toUtf8());
        device->write("media/repository/backup.tar", "just a file");
        device->write("media/repository/..++B++f", "x");
        device->write("media/repository/modules-list.sav",
                      device->entry("modules-list.sav") + "../../etc\n.\na/b\n");
        const QString listOutside = "cd '" + device->path("") +
                                    "' && find . -path ./data/VYXApplication/A -prune "
                                    "-o -path ./tmp -prune -o -type f -print | sort";
        const QByteArray outside = TestDevice::shell(listOutside);
        QVERIFY(restore());
        QCOMPARE(device->readData("A", "backup.tar"), "just a file");
        QFile::remove(device->dataPath("A", "backup.tar"));
        QCOMPARE(state("A"), saved);
        QCOMPARE(TestDevice::shell(listOutside), outside);
    }

    void partialDatabaseThatIsGone()
    {
        QVERIFY(device->startAndSave());
        QFile::remove(device->dataPath("A", "part.v1.data"));
        QVERIFY(restore());
        QVERIFY(!QFile::exists(device->dataPath("A", "part.v1.data")));
    }

    void killedAnywhere()
    {
        QVERIFY(device->startAndSave());
        const QByteArray saved = state("A");
        damage("A");
        QElapsedTimer timer;
        timer.start();
        QVERIFY(restore());
        const qint64 duration = timer.elapsed();
        QCOMPARE(state("A"), saved);

        constexpr int points = 14;
        for (int point = 1; point <= points; ++point) {
            damage("A");
            device->sql("A", "whole", "CREATE TABLE t(v); INSERT INTO t VALUES('damaged')");
            device->callLater("startRestoreFromRepository");
            QTest::qWait(static_cast<int>(duration * point / points));
            device->service().kill();
            device->service().waitForFinished();
            QVERIFY(device->startService("FastService"));
            // Each piece is as it was or as it was saved.
            const QByteArray rows = device->sql("A", "whole", "SELECT v FROM t ORDER BY 1");
            QVERIFY2(rows == "damaged\n" || rows == "A\nit's\nü\n", rows.constData());
            for (const QByteArray item : {"f.txt", "a/zipped.d/y"}) {
                const QByteArray content = device->readData("A", item);
                QVERIFY2(content == "changed" || content == "A" + item, content.constData());
            }
            QCOMPARE(device->sql("A", "part.v1", "SELECT v FROM own"), "own\n");
            QVERIFY(nothingLeftBehind());
            QVERIFY(device->allRun({"A"}));
        }
        QVERIFY(restore());
        QCOMPARE(state("A"), saved);
    }
};

QTEST_GUILESS_MAIN(tst_restore)
#include "tst_restore.moc"
