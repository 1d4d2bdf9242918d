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
        "<databases><database name='whole'/><database name='part'>"
        "<sql-command table-name='kept'>SELECT * FROM kept</sql-command></database></databases>"
        "<files><file>f.txt</file><file priority='low'>conf/deep/odd ü [1].ini</file>"
        "<file zip='true'>zipped</file><file zip='true' priority='normal'>a/zipped</file>"
        "<file priority='normal'>plain dir</file></files>";

    void addModule(const QString &name)
    {
        device->addModule(name, everyKind);
        device->sql(name, "whole",
                    "CREATE TABLE t(v); INSERT INTO t VALUES('" + name +
                        "'), ('it''s\nü'); PRAGMA user_version=3;");
        device->sql(name, "part",
                    "CREATE TABLE kept(id INTEGER PRIMARY KEY, v); CREATE TABLE own(v);"
                    "INSERT INTO kept VALUES(1, 'a'), (2, 'b'); INSERT INTO own VALUES('own');");
        for (const char *file : {"f.txt", "conf/deep/odd ü [1].ini", "zipped/sub/z 'q'", "a/zipped/y",
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
               device->sql(module, "part", "SELECT * FROM kept ORDER BY id; SELECT v FROM own;") +
               TestDevice::shell("cd '" + device->dataPath(module, "") + "' && " + printFiles);
    }

    void damage(const QString &module) const
    {
        QFile::remove(device->dataPath(module, "whole.data"));
        device->sql(module, "part", "DELETE FROM kept WHERE id=1; UPDATE kept SET v='changed';");
        device->writeData(module, "f.txt", "changed");
        QDir(device->dataPath(module, "conf")).removeRecursively();
        QDir(device->dataPath(module, "zipped")).removeRecursively();
        device->writeData(module, "a/zipped/y", "changed");
        QDir(device->dataPath(module, "plain dir")).removeRecursively();
    }

    bool restore() const
    {
        device->markLog();
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

    void moduleThatStartsAfterTheService()
    {
        QVERIFY(device->startAndSave());
        const QByteArray before = state("A");
        QCOMPARE(device->stopService(), 0);
        device->call("stopModule", {"A"}, "ApplicationManager");
        QVERIFY(device->startService("FastService"));
        device->call("startModule", {"A"}, "ApplicationManager");
        QVERIFY(device->waitForName("A"));
        damage("A");
        QVERIFY(restore());
        QCOMPARE(state("A"), before);
    }

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
        QVERIFY(device->hasLogged("info VYXSaveRestore: Restore finished (A:B:)"));
        QVERIFY(device->hasLogged("Same file 'B/whole.data': no need to restore"));
        QVERIFY(!device->hasLogged("error VYXSaveRestore: '"));

        const QFileInfo untouched(device->dataPath("A", "f.txt"));
        const QDateTime before = untouched.lastModified();
        damage("B");
        QVERIFY(restore());
        QCOMPARE(state("B"), b);
        QCOMPARE(QFileInfo(untouched.filePath()).lastModified(), before);
        QVERIFY(nothingLeftBehind());
        QVERIFY(device->allRun({"A", "B"}));
    }

    void priorityThatIsOff()
    {
        QVERIFY(device->startAndSave());
        damage("A");
        device->call("setSaveRestorePriority", {false, true, false});
        QVERIFY(restore());
        QVERIFY(!QFile::exists(device->dataPath("A", "whole.data")));
        QCOMPARE(device->readData("A", "f.txt"), "changed");
        QCOMPARE(device->readData("A", "a/zipped/y"), "Aa/zipped/y");
        QVERIFY(!QFile::exists(device->dataPath("A", "conf/deep")));
    }

    void refusals()
    {
        QVERIFY(device->start());
        QVERIFY(restore());
        QVERIFY(
            device->hasLogged("Error when downloading data from repository: Aborting restore operations"));
        QVERIFY(device->save());
        QFile::remove(device->path("data/dev_mode"));
        QVERIFY(restore());
        QVERIFY(device->hasLogged("Unsecured URL: abort restore operations."));
        device->call("setSaveRestoreLevel", {0});
        QVERIFY(restore());
        QVERIFY(device->hasLogged("Save/Restore is disabled: abort restore operations."));
        QVERIFY(!device->hasLogged("Restore finished"));
    }

    void modulesThatAreNotOnBothSides()
    {
        addModule("OnlyHere");
        QVERIFY(device->startAndSave());
        // A module of the list that this device does not have, and one of the device that is not on the list.
        device->write("media/repository/modules-list.sav", "Elsewhere\nA\n");
        damage("A");
        QVERIFY(restore());
        QVERIFY(device->hasLogged("Module 'OnlyHere' is left out"));
        QCOMPARE(device->sql("A", "whole", "SELECT count(*) FROM t"), "2\n"); // high priority, too
        QCOMPARE(device->readData("A", "a/zipped/y"), "Aa/zipped/y");
    }

    void migration()
    {
        device->write("usr/lib/VYXApplication/migration/AMigration",
                      "#!/bin/sh\necho \"$@\" >> '" + device->path("migrated").toUtf8() + "'\n");
        TestDevice::shell("chmod +x " + device->path("usr/lib/VYXApplication/migration/AMigration"));
        QVERIFY(device->startAndSave());
        QVERIFY(restore());
        QVERIFY(!device->hasLogged("migration list"));
        device->call("setModuleRelease", {"A", "2027", "1.0"}, "ApplicationManager");
        QVERIFY(restore());
        QVERIFY(device->hasLogged("Add module to migration list: A;2026;1.0;2027;1.0"));
        QVERIFY(device->hasLogged("Start migration process for module 'A' : '2026' -> '2027'"));
        QVERIFY(TestDevice::waitUntil([&] { return device->read("migrated") == "A 2026 2026\n"; }));
        QVERIFY(!QFile::exists(device->path("tmp/VYXApplication/SaveRestore/Restore/AMigration")));
    }

    void faultyRepositories_data()
    {
        // what is run in the repository, what stays as it is damaged, what the service says
        columns<QString, QString, QString>("fault", "item", "message");
        const QString broken = "is missing or broken";
        const QString cutOff = "head -c 60 %1 > x; mv x %1";
        row("dump missing", "rm A++whole.dump.gz", "whole",
            "Could not fetch 'A++whole.dump.gz' from the repository");
        row("dump truncated", cutOff.arg("A++whole.dump.gz"), "whole", broken);
        row("dump is no SQL",
            "printf 'PRAGMA foreign_keys=OFF;\\nhello\\nCOMMIT;\\n' | gzip > A++whole.dump.gz", "whole",
            "could not be loaded");
        row("archive missing", "rm A++a++zipped.tar.gz", "a/zipped/y",
            "Could not fetch 'A++a++zipped.tar.gz'");
        row("archive truncated", cutOff.arg("A++a++zipped.tar.gz"), "a/zipped/y", broken);
        row("archive leads out", "tar -czf A++a++zipped.tar.gz A.version", "a/zipped/y",
            "is refused: it leads out of");
        row("file missing", "rm f.txt", "f.txt", "Could not fetch 'f.txt' from the repository");
        row("file cut off", ": > f.txt", "f.txt", "Entry 'f.txt' is not what was saved");
        row("another's content", "cp A.version f.txt", "f.txt", "Entry 'f.txt' is not what was saved");
    }
    void faultyRepositories()
    {
        QFETCH(QString, fault);
        QFETCH(QString, item);
        QFETCH(QString, message);
        QVERIFY(device->startAndSave());
        const QByteArray saved = state("A");
        damage("A");
        device->sql("A", "whole", "CREATE TABLE t(v); INSERT INTO t VALUES('damaged')");
        TestDevice::shell("cd '" + device->repositoryPath() + "' && { " + fault + "; }");
        QVERIFY(restore());
        QVERIFY(device->hasLogged(message));
        QVERIFY(device->hasLogged("could not be restored and stays as it was"));
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
        const QByteArray list = device->entry("modules-list.sav");
        device->write("media/repository/modules-list.sav", list + "../../etc\n.\na/b\n");
        const QString listOutside = "cd '" + device->path("") +
                                    "' && find . -path ./data/VYXApplication/A -prune "
                                    "-o -path ./tmp -prune -o -type f -print | sort";
        const QByteArray outside = TestDevice::shell(listOutside);
        QVERIFY(restore());
        QCOMPARE(device->logged("in the repository is refused: it is none of this module's").size(), 7);
        QCOMPARE(device->logged("of the repository is refused: it has no usable name").size(), 3);
        QCOMPARE(device->readData("A", "backup.tar"), "just a file");
        QFile::remove(device->dataPath("A", "backup.tar"));
        QCOMPARE(state("A"), saved);
        QCOMPARE(TestDevice::shell(listOutside), outside);
    }

    void repositoryThatVanishes()
    {
        device->addModule("Slow", "<databases><database name='d'/></databases>", "--pause-delay 1500");
        device->sql("Slow", "d", "CREATE TABLE t(v)");
        QVERIFY(device->startAndSave());
        damage("A");
        const QByteArray damaged = state("A");
        device->markLog();
        device->call("setSaveRestorePriority", {true, false, true});
        QDBusPendingCall running = device->callLater("startRestoreFromRepository");
        QVERIFY(device->waitForLog("Wait for modules to be paused (Slow)"));
        QDir(device->repositoryPath()).removeRecursively();
        running.waitForFinished();
        // A's high data were put back before; what came after could not be fetched.
        QVERIFY(device->hasLogged("Could not fetch 'conf++deep++odd ü [1].ini' from the repository"));
        QVERIFY(state("A") != damaged);
        QVERIFY(!QFile::exists(device->dataPath("A", "conf")));
        QVERIFY(nothingLeftBehind());
        QVERIFY(device->allRun({"A", "Slow"}));
    }

    void partialDatabaseThatIsGone()
    {
        QVERIFY(device->startAndSave());
        QFile::remove(device->dataPath("A", "part.data"));
        QVERIFY(restore());
        QVERIFY(device->hasLogged("there is nothing to put the saved rows into"));
        QVERIFY(!QFile::exists(device->dataPath("A", "part.data")));
    }

    void killedAnywhere()
    {
        addModule("B");
        QVERIFY(device->startAndSave());
        const QByteArray a = state("A");
        const QByteArray b = state("B");
        damage("A");
        QElapsedTimer timer;
        timer.start();
        QVERIFY(restore());
        const qint64 duration = timer.elapsed();
        QCOMPARE(state("A"), a);

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
            const QByteArray rows =
                device->sql("A", "whole", "SELECT quote(v) FROM t ORDER BY 1; PRAGMA user_version;");
            QVERIFY2(rows == "'damaged'\n0\n" || a.startsWith(rows), rows.constData());
            const QByteArray file = device->readData("A", "f.txt");
            QVERIFY2(file == "changed" || file == "Af.txt", file.constData());
            const QByteArray member = device->readData("A", "a/zipped/y");
            QVERIFY2(member == "changed" || member == "Aa/zipped/y", member.constData());
            QCOMPARE(device->sql("A", "part", "SELECT v FROM own"), "own\n");
            QVERIFY(nothingLeftBehind());
            QVERIFY(device->allRun({"A", "B"}));
        }
        QVERIFY(restore());
        QCOMPARE(state("A"), a);
        QCOMPARE(state("B"), b);
    }

    void serviceEndsWhileModulesArePaused()
    {
        const QString dependent =
            "<databases><database name='d'><dependency>A</dependency></database></databases>";
        device->addModule("Slow", dependent, "--pause-delay 1500");
        device->sql("Slow", "d", "CREATE TABLE t(v)");
        QVERIFY(device->startAndSave());
        damage("A");
        const QByteArray damaged = state("A");
        for (const int signal : {SIGTERM, SIGKILL}) {
            device->markLog();
            device->callLater("startRestoreFromRepository");
            QVERIFY(TestDevice::waitUntil([&] { return device->moduleState("A") == "T"; }));
            kill(static_cast<pid_t>(device->service().processId()), signal);
            QVERIFY(device->service().waitForFinished(20000));
            QVERIFY(signal == SIGKILL || device->allRun({"A", "Slow"}));
            QVERIFY(device->startService("FastService"));
            QVERIFY(device->allRun({"A"}));
            QTest::qWait(2000); // Slow may have been on its way
            QVERIFY(device->allRun({"A", "Slow"}));
            QVERIFY(nothingLeftBehind());
        }
        QCOMPARE(state("A"), damaged);
    }
};

QTEST_GUILESS_MAIN(tst_restore)
#include "tst_restore.moc"
