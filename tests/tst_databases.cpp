#include "platform/core/Waiter.h"
#include "platform/DevicePaths.h"
#include "restore/DatabaseRestore.h"
#include "restore/LiveData.h"
#include "tests/support/DataTable.h"
#include "tests/support/TestDevice.h"

#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QRegularExpression>
#include <QThread>

#include <algorithm>
#include <csignal>
#include <memory>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

using namespace std::chrono_literals;

/// What the restore of a dump does to a database and to its users.
class tst_databases : public QObject
{
    Q_OBJECT

    QTemporaryDir root;
    Waiter waiter;
    LoadLimits limits;
    const QByteArray path = qgetenv("PATH");

    QString live(const QString &item = {}) const { return root.path() + "/data/VYXApplication/m/" + item; }
    QString names() const { return QDir(live()).entryList(QDir::Files | QDir::Hidden).join(' '); }

    /// Restore x.data from a dump, which follows the head of a whole one when it does not begin with "=".
    QString restored(const QByteArray &sql)
    {
        const QString dump = root.filePath("dump");
        writeFile(dump, sql.startsWith('=') ? sql.mid(1) : "PRAGMA foreign_keys=OFF;\n" + sql);
        TestDevice::shell("gzip -f " + dump);
        return restoredFrom(dump + ".gz");
    }
    QString restoredFrom(const QString &dump)
    {
        DatabaseRestore restore(dump, live("x.data"), limits);
        const QString fault = restore.prepare(waiter);
        return fault.isEmpty() ? restore.apply(waiter) : fault;
    }

    /// A script that runs instead of sqlite3 until the test's end.
    void replaceSqlite(const QString &script) const
    {
        const QString tool = root.filePath("bin/sqlite3");
        writeFile(tool, ("#!/bin/sh\nPATH=" + path + "\n" + script + "\n").toUtf8());
        TestDevice::shell("chmod 755 " + root.filePath("bin") + " " + tool);
        qputenv("PATH", root.filePath("bin").toUtf8() + ":" + path);
    }

private Q_SLOTS:
    void init()
    {
        qputenv("PATH", path);
        qputenv("VYX_DEVICE_ROOT", root.path().toUtf8());
        QDir(root.path() + "/data").removeRecursively();
        QDir().mkpath(live());
        limits = {.processorTime = 1s, .busy = 100ms};
    }

    void ownersRights()
    {
        if (getuid() != 0) {
            QSKIP("only root can give its rights up");
        }
        replaceSqlite("id -u >>" + live("who") + "\nexec sqlite3 \"$@\"");
        TestDevice::shell("chmod 755 " + root.path() + "; chown 1234:1234 " + live());
        QCOMPARE(restored("BEGIN;\nCREATE TABLE t(v);\nCOMMIT;\n"), QString());
        QCOMPARE(restored("=BEGIN TRANSACTION;\nINSERT INTO t VALUES(1);\nCOMMIT;\n"), QString());
        QCOMPARE(readFile(live("who")), "1234\n1234\n");
        QCOMPARE(TestDevice::sqlOnFile(live("x.data"), "SELECT * FROM t"), "1\n");
    }

    void dumps_data()
    {
        // the dump after the head of a whole one, or a dump of its own; what is in the database afterwards
        columns<QByteArray, QByteArray>("sql", "content");
        const QByteArray loaded = "CREATE TABLE t(v);\nINSERT INTO t VALUES('new');\n";
        row("good", "BEGIN;\n" + loaded + "COMMIT;\n", QByteArray("new\n"));
        row("full text index", "BEGIN;\n" + loaded + "CREATE VIRTUAL TABLE f USING fts5(x);\nCOMMIT;\n",
            QByteArray("new\n"));
        row("other settings",
            "PRAGMA page_size=512;\nPRAGMA journal_mode=WAL;\nBEGIN;\n" + loaded + "COMMIT;\n",
            QByteArray("new\n"));
        const QByteArray old = "old\n";
        row("no SQL", QByteArray("hello\nCOMMIT;\n"), old);
        row("one bad statement", "BEGIN;\n" + loaded + "INSERT INTO u VALUES(1);\nCOMMIT;\n", old);
        row("shell command", loaded + ".shell touch TRACE\nBEGIN;\nCOMMIT;\n", old);
        row("another database", loaded + "ATTACH 'TRACE' AS x; CREATE TABLE x.t(v);\nBEGIN;\nCOMMIT;\n", old);
        row("no end", "BEGIN;\n" + loaded, old);
        row("end within a text", "BEGIN;\n" + loaded + "INSERT INTO t VALUES('\nCOMMIT;\n');\n", old);
        row("rolled back", "BEGIN;\n" + loaded + "ROLLBACK;\n", old);
        row("ends the shell", ".quit\nBEGIN;\n" + loaded + "COMMIT;\n", old);
        row("begins otherwise", "=.quit\nBEGIN;\n" + loaded + "COMMIT;\n", old);
        const QByteArray numbers = "WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x+1 FROM c) ";
        row("endless output", "BEGIN;\n" + loaded + numbers + "SELECT x FROM c;\nCOMMIT;\n", old);
        row("endless rows", "BEGIN;\n" + loaded + "INSERT INTO t " + numbers + "SELECT x FROM c;\nCOMMIT;\n",
            old);
        row("line of 200 MB", QByteArray(200000000, '-') + "\nBEGIN;\n" + loaded + "COMMIT;\n",
            QByteArray("new\n"));
        row("endless text",
            "BEGIN;\n" + loaded + "INSERT INTO t VALUES('" + QByteArray(60000000, 'x') + "');\nCOMMIT;\n",
            old);
        row("nothing but ends", QByteArray("COMMIT;\n").repeated(1000000), old);
        const QByteArray rows = "=BEGIN TRANSACTION;\nREPLACE INTO t VALUES('row');\n";
        row("rows", rows + "COMMIT;\n", QByteArray("old\nrow\n"));
        row("rows of which one fails", rows + "REPLACE INTO u VALUES(1);\nCOMMIT;\n", old);
        row("rows that end before one fails", rows + "COMMIT;\nREPLACE INTO u VALUES(1);\nCOMMIT;\n", old);
        row("rows without end", rows + numbers + "SELECT x FROM c;\nCOMMIT;\n", old);
    }
    void dumps()
    {
        QFETCH(QByteArray, sql);
        QFETCH(QByteArray, content);
        if (QTest::currentDataTag() == QByteArray("endless rows")) {
            limits = {.wallClock = 500ms};
        } else if (QTest::currentDataTag() == QByteArray("line of 200 MB")) {
            limits.processorTime = 10s;
        }
        limits.memory = QTest::currentDataTag() == QByteArray("endless text") ? 100000000 : limits.memory;
        QElapsedTimer timer;
        timer.start();
        TestDevice::sqlOnFile(live("x.data"), "CREATE TABLE t(v); INSERT INTO t VALUES('old')");
        const QString fault = restored(sql.replace("TRACE", live("trace").toUtf8()));
        QCOMPARE(fault.isEmpty(), content != "old\n");
        QVERIFY(timer.elapsed() < 15000);
        QVERIFY(!names().contains(QRegularExpression("saverestore|trace")));
        const QByteArray found =
            TestDevice::sqlOnFile(live("x.data"), "SELECT v FROM t; PRAGMA journal_mode; PRAGMA quick_check");
        QCOMPARE(found, content + "delete\nok\n");
    }

    void files_data()
    {
        // how the dump d is made of the two gzip members a and b of one, in shell; whether it can be restored
        columns<QString, bool>("make", "good");
        row("good", "cat a b >d", true);
        row("no line feed at the end", "zcat a b | head -c -1 | gzip >d", true);
        row("many members", "zcat a b | split -b 3 --filter=gzip >d", true);
        row("an empty member", ": | gzip | cat a - b >d", true);
        row("more than a block", "{ cat a; yes -- ------ | head -c 700000 | gzip; cat b; } >d", true);
        row("last member cut off", "cat a b | head -c -1 >d", false);
        row("last member all but missing", "{ cat a b; gzip </dev/null | head -c 10; } >d", false);
        row("no last member", "cp a d", false);
        row("checksum of a later member",
            "s=$(($(stat -c %s b) - 8)); { cat a; head -c $s b; echo 1234; tail -c 3 b; } >d", false);
        row("length of a later member", "{ cat a; head -c -1 b; printf '\\1'; } >d", false);
        row("rubbish behind it", "{ cat a b; echo rubbish; } >d", false);
        row("not compressed", "zcat a b >d", false);
        row("compressed twice", "cat a b | gzip >d", false);
        row("empty", ": >d", false);
        row("missing", "rm -f d", false);
        row("a link", "cat a b >e; ln -s e d", false);
        row("a pipe", "mkfifo d", false);
        row("another end of lines", "zcat a b | sed s/$/\\\\r/ | gzip >d", false);
        row("a long line that begins so", "zcat a b | sed \"1s/$/$(seq -s - 99)/\" | gzip >d", false);
        row("rolled back in a text",
            "zcat b | sed 's/new/\\nROLLBACK; -- due to errors\\n/' | gzip | cat a - >d", false);
        row("fails and is cut off", "echo 'hello;' | gzip | cat a - b | head -c -1 >d", false);
    }
    void files()
    {
        QFETCH(QString, make);
        QFETCH(bool, good);
        for (const QByteArray head : {"PRAGMA foreign_keys=OFF;\nBEGIN", "BEGIN"}) {
            TestDevice::sqlOnFile(live("x.data"), "CREATE TABLE IF NOT EXISTS t(v); DELETE FROM t");
            const QTemporaryDir place;
            writeFile(place.filePath("a"), head + " TRANSACTION;\nCREATE TABLE IF NOT EXISTS t(v);\n");
            writeFile(place.filePath("b"), "INSERT INTO t VALUES('new');\nCOMMIT;\n");
            TestDevice::shell("cd " + place.path() + "; gzip a b; mv a.gz a; mv b.gz b; " + make);
            const QString dump = place.filePath("d");
            QCOMPARE(restoredFrom(dump), good ? "" : "Dump '" + dump + "' is missing or broken");
            QCOMPARE(TestDevice::sqlOnFile(live("x.data"), "SELECT v FROM t"), good ? "new\n" : "");
            QVERIFY(!names().contains("saverestore"));
        }
    }

    /// Restores databases of one directory from dumps, all prepared together.
    QStringList restoredTogether(const QStringList &names, const QByteArrayList &texts)
    {
        std::vector<std::unique_ptr<DatabaseRestore>> made;
        QList<DatabaseRestore *> all;
        for (qsizetype number = 0; number < names.size(); ++number) {
            const QString dump = root.filePath("dump." + QString::number(number));
            writeFile(dump, "PRAGMA foreign_keys=OFF;\nBEGIN;\n" + texts.at(number) + "COMMIT;\n");
            TestDevice::shell("gzip -f " + dump);
            made.push_back(std::make_unique<DatabaseRestore>(dump + ".gz", live(names.at(number)), limits));
            all << made.back().get();
        }
        QStringList faults = DatabaseRestore::prepareAll(waiter, all);
        for (qsizetype number = 0; number < all.size(); ++number) {
            faults[number] = faults.at(number).isEmpty() ? all.at(number)->apply(waiter) : faults.at(number);
        }
        return faults;
    }
    static QByteArray rowsOf(int count)
    {
        return "CREATE TABLE t(v);\nWITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x+1 FROM c LIMIT " +
               QByteArray::number(count) + ") INSERT INTO t SELECT zeroblob(100000) FROM c;\n";
    }

    void severalAtATime()
    {
        replaceSqlite("echo + >>" + live("log") + "\nsleep .2\nsqlite3 \"$@\"\ns=$?\necho - >>" +
                      live("log") + "\nexit $s");
        QStringList names;
        QByteArrayList texts;
        for (int number = 0; number < 6; ++number) {
            names << QString("new/below/%1.data").arg(number);
            texts << (number == 3 ? QByteArray("hello;\n") : rowsOf(number + 1));
        }
        const QStringList faults = restoredTogether(names, texts);
        for (int number = 0; number < 6; ++number) {
            QCOMPARE(faults.at(number).contains("could not be loaded"), number == 3);
            const QByteArray rows = TestDevice::sqlOnFile(live(names.at(number)), "SELECT count(*) FROM t");
            QCOMPARE(rows.toInt(), number == 3 ? 0 : number + 1);
        }
        int running = 0;
        int most = 0;
        const QByteArrayList signs = readFile(live("log")).trimmed().split('\n');
        for (const QByteArray &sign : signs) {
            running += sign == "+" ? 1 : -1;
            most = std::max(most, running);
        }
        QCOMPARE(running, 0);
        QCOMPARE(most, std::min(QThread::idealThreadCount(), 6));
    }

    void roomIsShared()
    {
        if (mount("none", live().toUtf8().constData(), "tmpfs", 0, "size=20m") != 0) {
            QSKIP("only root can make a file system");
        }
        const QStringList faults = restoredTogether({"a.data", "b.data", "c.data", "d.data"},
                                                    {rowsOf(140), rowsOf(1), rowsOf(100000), rowsOf(2)});
        const QByteArray found = TestDevice::shell("cd " + live() +
                                                   "; ls -A; for f in a b d; do sqlite3 $f.data "
                                                   "'SELECT count(*) FROM t'; done");
        umount2(live().toUtf8().constData(), MNT_DETACH);
        QVERIFY2(faults.at(0).isEmpty(), qPrintable(faults.at(0)));
        QVERIFY(faults.at(1).isEmpty() && !faults.at(2).isEmpty() && faults.at(3).isEmpty());
        QCOMPARE(found, "a.data\nb.data\nd.data\n140\n1\n2\n");
    }

    void usersOfDatabases_data()
    {
        // the pragmas of the database, what its user does before he is stopped, what happens to the database
        columns<QString, QByteArray, QString, bool>("pragmas", "user", "damage", "sameFile");
        const QString log = "PRAGMA journal_mode=WAL;";
        const QString small = "PRAGMA page_size=512;";
        const QByteArray reads = "SELECT * FROM t;";
        const QByteArray writes = "BEGIN; INSERT INTO t VALUES('half');";
        row("idle", QString(), reads, QString(), true);
        row("idle with a log", log, reads, QString(), true);
        row("reads", QString(), "BEGIN;" + reads, QString(), false);
        row("reads with a log", log, "BEGIN;" + reads, QString(), true);
        row("writes", QString(), writes, QString(), false);
        row("writes with a log", log, writes, QString(), false);
        row("writes more than is kept in memory", QString(),
            "PRAGMA cache_size=1;" + writes + "INSERT INTO t VALUES(zeroblob(100000));", QString(), false);
        row("small pages", small, reads, QString(), true);
        row("small pages with a log", small + log, reads, QString(), true);
        row("missing", QString(), QByteArray(), "rm x.data", false);
        row("missing but for a log", log, QByteArray(),
            "rm x.data; echo x >x.data-wal; echo x >x.data-journal", false);
        row("empty", QString(), QByteArray(), ": >x.data", true);
        row("garbage", QString(), QByteArray(), "head -c 9999 /dev/urandom >x.data", false);
        row("cut off", "CREATE TABLE u(v); INSERT INTO u VALUES(zeroblob(90000));", QByteArray(),
            "head -c 5000 x.data >y; cat y >x.data; rm y", false);
        row("a link", QString(), QByteArray(), "mv x.data y; ln -s y x.data", false);
    }
    void usersOfDatabases()
    {
        QFETCH(QString, pragmas);
        QFETCH(QByteArray, user);
        QFETCH(QString, damage);
        QFETCH(bool, sameFile);
        const QString file = live("x.data");
        TestDevice::sqlOnFile(file, pragmas + "CREATE TABLE t(v); INSERT INTO t VALUES('old')");
        QProcess process;
        if (!user.isEmpty()) {
            process.start("sqlite3", {"-batch", file});
            process.write(user + "\n.print ready\n");
            QVERIFY(TestDevice::waitUntil([&] { return process.readAllStandardOutput().contains("ready"); }));
            kill(static_cast<pid_t>(process.processId()), SIGSTOP);
        }
        TestDevice::shell("cd " + live() + "; chmod 750 .; chmod 640 x.data; " + damage);
        const auto number = [&] { return TestDevice::shell("stat -c %i " + file); };
        const QByteArray before = number();
        QCOMPARE(restored("BEGIN;\nCREATE TABLE t(v);\nINSERT INTO t VALUES('new');\nCOMMIT;\n"), QString());
        QCOMPARE(number() == before, sameFile);
        QCOMPARE(TestDevice::shell("stat -c %a " + file), "640\n");
        if (!user.isEmpty()) {
            kill(static_cast<pid_t>(process.processId()), SIGCONT);
            process.write("ROLLBACK;\nINSERT INTO t VALUES('later');\n");
            process.closeWriteChannel();
            QVERIFY(process.waitForFinished());
        }
        QCOMPARE(TestDevice::sqlOnFile(file, "SELECT v FROM t; PRAGMA integrity_check"),
                 sameFile && !user.isEmpty() ? "new\nlater\nok\n" : "new\nok\n");
        QVERIFY(!names().contains("saverestore"));
    }

    void killedRestores_data()
    {
        columns<QByteArray, QString>("sql", "grows"); // the file in whose middle the restore is killed
        const QByteArray rows = "WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x+1 FROM c LIMIT 600) "
                                "INSERT INTO t SELECT zeroblob(100000) FROM c;\n";
        row("load", "BEGIN;\nCREATE TABLE t(v);\n" + rows + "COMMIT;\n", QString(".saverestore-incoming.*"));
        row("copy", "BEGIN;\nCREATE TABLE t(v);\n" + rows + "COMMIT;\n", QString("x.data"));
        row("rows", "=BEGIN TRANSACTION;\n" + rows + "COMMIT;\n", QString("x.data"));
    }
    void killedRestores()
    {
        QFETCH(QByteArray, sql);
        QFETCH(QString, grows);
        TestDevice::sqlOnFile(live("x.data"), "CREATE TABLE t(v); INSERT INTO t VALUES('old')");
        const pid_t child = fork();
        if (child == 0) {
            restored(sql);
            _exit(0);
        }
        const auto halfWritten = [&] {
            const QFileInfoList files = QDir(live()).entryInfoList({grows}, QDir::Files | QDir::Hidden);
            return !files.isEmpty() && files.first().size() > 1000000;
        };
        const QDeadlineTimer deadline(20s);
        while (!halfWritten() && !deadline.hasExpired()) { // a pause would miss the moment
        }
        kill(child, SIGKILL);
        int status = 0;
        waitpid(child, &status, 0);
        QVERIFY(WIFSIGNALED(status) && !deadline.hasExpired());
        const QString children = "pgrep -f '" + live() + "[.x]'";
        QVERIFY(TestDevice::waitUntil([&] { return TestDevice::shell(children).isEmpty(); }));
        LiveData::recoverAll(DevicePaths::dataRoot());
        const QByteArray rows =
            TestDevice::sqlOnFile(live("x.data"), "SELECT count(*) FROM t; PRAGMA integrity_check");
        QVERIFY2(rows == "1\nok\n" || rows == "600\nok\n", rows); // all of the old or all of the new
        QVERIFY(!names().contains("saverestore"));
    }

    void writerKeepsItsDatabase()
    {
        TestDevice device;
        device.addModule("W", "<databases><database name='samples'/></databases>",
                         "--write-database samples");
        QVERIFY(device.start());
        const auto rows = [&](const char *which) {
            return device.sql("W", "samples", QString("SELECT count(*) FROM samples ") + which).toInt();
        };
        QVERIFY(TestDevice::waitUntil([&] { return rows("") > 0; }));
        device.sql("W", "samples", "INSERT INTO samples VALUES(-1, '', 0)");
        QVERIFY(device.save());
        const QString number = "stat -c %i " + device.dataPath("W", "samples.data");
        const QByteArray before = TestDevice::shell(number);
        device.sql("W", "samples", "DELETE FROM samples");
        device.call("startRestoreFromRepository");
        QCOMPARE(rows("WHERE id = -1"), 1);
        QCOMPARE(TestDevice::shell(number), before);
        const int restoredRows = rows("");
        QVERIFY(TestDevice::waitUntil([&] { return rows("") > restoredRows; }));
    }
};

QTEST_GUILESS_MAIN(tst_databases)
#include "tst_databases.moc"
