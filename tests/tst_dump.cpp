#include "catalogue/ItemNames.h"
#include "platform/core/Waiter.h"
#include "platform/DevicePaths.h"
#include "staging/DatabaseDump.h"
#include "staging/DatabaseStaging.h"
#include "tests/support/DataTable.h"
#include "tests/support/TestDevice.h"

#include <QDeadlineTimer>
#include <QTemporaryDir>
#include <QTimer>

#include <csignal>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace std::chrono_literals;

namespace {

/// A program first on PATH that runs in place of sqlite3 when the last argument begins so.
class StandIn
{
public:
    StandIn(const QString &root, const QByteArray &script, const QByteArray &begin = ".dump")
    {
        const QString tool = root + "/bin/sqlite3";
        writeFile(tool, "#!/bin/sh\nPATH='" + path + "'\nfor last; do :; done\ncase $last in\n" + begin +
                            "*) " + script + " ;;\n*) exec sqlite3 \"$@\" ;;\nesac\n");
        QFile::setPermissions(tool, QFile::ReadOwner | QFile::ExeOwner | QFile::WriteOwner);
        qputenv("PATH", QFile::encodeName(root) + "/bin:" + path);
    }
    ~StandIn() { qputenv("PATH", path); }

private:
    const QByteArray path = qgetenv("PATH");
};

} // namespace

/// Databases staged with the real tools, loaded again and compared.
class tst_dump : public QObject
{
    Q_OBJECT

    QTemporaryDir root;
    mutable Waiter waiter;

    QString live(const QString &database) const
    {
        return root.path() + "/data/VYXApplication/m/" + database + ".data";
    }
    static QString dumpName(const QString &database) { return "m++" + database + ".dump.gz"; }
    QString stagedDump(const QString &database) const
    {
        return DevicePaths::staged("m") + "/" + dumpName(database);
    }

    QByteArray sql(const QString &statements) const { return TestDevice::sqlOnFile(live("d"), statements); }

    /// Leave the database and its log as a writer does that is paused or killed after these statements.
    void writeAndStop(const QString &statements, const QString &log) const
    {
        const QString script =
            statements + QString("\n.shell cp %1 %1%2 %3\n").arg(live("d"), log, root.path());
        TestDevice::shell("printf '%s' \"" + script + "\" | sqlite3 " + live("d"));
        QFile::remove(live("d"));
        QVERIFY(QFile::copy(root.path() + "/d.data", live("d")));
        QVERIFY(QFile::copy(root.path() + "/d.data" + log, live("d") + log));
    }

    QString digestAfterStaging(const RestorableDatabase &database) const
    {
        ChecksumLines lines;
        DatabaseStaging staging("m", lines, waiter);
        staging.copy(database.getName());
        staging.dump(database);
        return lines.value(0, ChecksumLine({"", ""})).digest();
    }

    QString dumpText(const QString &database) const
    {
        return QString::fromUtf8(TestDevice::shell("zcat '" + stagedDump(database) + "'"));
    }

    QStringList leftInStaging() const
    {
        return QDir(DevicePaths::staged("m")).entryList(QDir::Files | QDir::Hidden);
    }

    static long mostMemory()
    {
        rusage used = {};
        getrusage(RUSAGE_SELF, &used);
        return used.ru_maxrss;
    }

private Q_SLOTS:
    void initTestCase() { ::signal(SIGXFSZ, SIG_IGN); }

    void init()
    {
        qputenv("VYX_DEVICE_ROOT", root.path().toUtf8());
        QDir(root.path() + "/data").removeRecursively();
        QDir(DevicePaths::stagingRoot()).removeRecursively();
        QDir().mkpath(root.path() + "/data/VYXApplication/m");
        QDir().mkpath(DevicePaths::staged("m"));
    }

    void wholeDatabase()
    {
        const QString again = root.path() + "/again.data";
        const QString query = "SELECT quote(a), quote(b) FROM t; SELECT name FROM sqlite_master;"
                              "PRAGMA user_version; PRAGMA application_id;";
        for (const QString name : {"contacts", "it's (a) $HOME `id` ü \\n \"x\"", "-rf"}) {
            TestDevice::sqlOnFile(live(name),
                                  "CREATE TABLE t(a, b BLOB); CREATE INDEX i ON t(a);"
                                  "INSERT INTO t VALUES('\nROLLBACK; -- due to errors\nCOMMIT;\n', x'00ff'),"
                                  "(NULL, 1.5), ('日本', zeroblob(300000));"
                                  "PRAGMA user_version=7; PRAGMA application_id=99;");
            QVERIFY(!digestAfterStaging(RestorableDatabase(name)).isEmpty());
            QVERIFY(leftInStaging().contains(dumpName(name)));
            writeFile(root.path() + "/dump.gz", readFile(stagedDump(name)));
            QFile::remove(again);
            TestDevice::shell("zcat " + root.path() + "/dump.gz | sqlite3 " + again);
            QCOMPARE(TestDevice::sqlOnFile(again, query), TestDevice::sqlOnFile(live(name), query));
        }
        QCOMPARE(leftInStaging().size(), 3);
    }

    void selectedRows()
    {
        RestorableDatabase database("d");
        QString create;
        const QStringList tables = {"calls",    "order",  "a&b", "back\\slash", "say \"x\"", "it's",
                                    "my table", "tmp_99", "tmp", "日本",        "t10",       "two\nlines"};
        for (const QString &table : tables) {
            const QString quoted = DatabaseDump::sqlIdentifier(table);
            create += QString("CREATE TABLE %1(id INTEGER PRIMARY KEY, v); INSERT INTO %1 VALUES"
                              "(1, 'row of %2 tmp_1\nINSERT INTO tmp_0 '), (2, x'ff00fe'), (3, 'left out');")
                          .arg(quoted, QString(table).replace("'", "''"));
            database.addSqlCommand(table, QString("SELECT * FROM %1 WHERE v <> 'left out'").arg(quoted));
        }
        create += "CREATE TABLE tmp_secret(v); INSERT INTO tmp_secret VALUES('not selected');";
        QCOMPARE(sql(create), QByteArray());
        QVERIFY(!digestAfterStaging(database).isEmpty());
        QCOMPARE(leftInStaging(), QStringList{dumpName("d")});

        const QStringList dump = dumpText("d").split('\n', Qt::SkipEmptyParts);
        QCOMPARE(dump.first(), "BEGIN TRANSACTION;");
        QCOMPARE(dump.last(), "COMMIT;");
        QCOMPARE(dump.size(), 2 + 2 * tables.size() + 2); // a name of two lines
        QVERIFY(dump.at(1).startsWith("REPLACE INTO calls VALUES("));
        QVERIFY(!dump.join('\n').contains("not selected"));

        for (const QString &table : tables) {
            sql("UPDATE " + DatabaseDump::sqlIdentifier(table) + " SET v='damaged' WHERE id < 3");
        }
        TestDevice::shell("zcat '" + stagedDump("d") + "' | sqlite3 '" + live("d") + "'");
        for (const QString &table : tables) {
            const QString rows = "1|'row of %1 tmp_1\nINSERT INTO tmp_0 '\n2|X'FF00FE'\n3|'left out'\n";
            QCOMPARE(sql("SELECT id, quote(v) FROM " + DatabaseDump::sqlIdentifier(table)),
                     rows.arg(QString(table).replace("'", "''")).toUtf8());
        }
    }

    void rowsThatCannotBeSelected()
    {
        sql("CREATE TABLE t(v); INSERT INTO t VALUES(1)");
        const QString trace = root.path() + "/trace";
        RestorableDatabase database("d");
        database.addSqlCommand("gone", "SELECT * FROM gone");
        database.addSqlCommand("t", "SELECT * FROM t");
        database.addSqlCommand("t", "SELECT * FROM t;\n.shell touch " + trace + "\n");
        QVERIFY(!digestAfterStaging(database).isEmpty());
        QVERIFY(dumpText("d").startsWith("BEGIN TRANSACTION;\nREPLACE INTO t VALUES(1);\n"));
        QVERIFY(!QFile::exists(trace));
    }

    void writeAheadLog()
    {
        // The row is in the log only.
        writeAndStop("PRAGMA journal_mode=WAL; CREATE TABLE t(v); INSERT INTO t VALUES('in the log');",
                     "-wal");
        const QString digest = digestAfterStaging(RestorableDatabase("d"));
        QVERIFY(!digest.isEmpty());
        QVERIFY(dumpText("d").contains("in the log"));
        QCOMPARE(leftInStaging(), QStringList{"m++d.dump.gz"});
        QCOMPARE(digestAfterStaging(RestorableDatabase("d")), digest);
    }

    void hotJournal()
    {
        sql("CREATE TABLE t(v); INSERT INTO t VALUES('committed')");
        writeAndStop(
            "PRAGMA cache_size=1; BEGIN; UPDATE t SET v='uncommitted'; CREATE TABLE filler AS WITH RECURSIVE "
            "c(n) AS (SELECT 1 UNION ALL SELECT n+1 FROM c WHERE n < 20000) SELECT n FROM c;",
            "-journal");
        QVERIFY(!digestAfterStaging(RestorableDatabase("d")).isEmpty());
        QVERIFY(dumpText("d").contains("'committed'"));
        QVERIFY(!dumpText("d").contains("filler"));
    }

    void brokenDatabases()
    {
        const QString forgetTable =
            "sqlite3 %1 \"PRAGMA writable_schema=ON; DELETE FROM sqlite_master WHERE name='u'\"";
        for (const QString &damage : {QString("head -c 4096 /dev/zero | dd of=%1 conv=notrunc"),
                                      QString("truncate -s 40000 %1"), forgetTable}) {
            QFile::remove(live("d"));
            sql("CREATE TABLE t(v); CREATE TABLE u(v); INSERT INTO u VALUES(1); WITH RECURSIVE c(n) AS "
                "(SELECT 1 "
                "UNION ALL SELECT n+1 FROM c WHERE n < 5000) INSERT INTO t SELECT hex(randomblob(50)) FROM "
                "c;");
            TestDevice::shell(damage.arg(live("d")));
            QVERIFY2(digestAfterStaging(RestorableDatabase("d")).isEmpty(), qPrintable(damage));
            QCOMPARE(leftInStaging(), QStringList());
        }
    }

    void toolsThatFail()
    {
        sql("CREATE TABLE t(v); INSERT INTO t VALUES(1), (2), (3)");
        RestorableDatabase selected("d");
        selected.addSqlCommand("t", "SELECT * FROM t");
        const QByteArray half = "sqlite3 \"$@\" | head -n 4; kill -9 $$";
        const QByteArray rowLost = "sqlite3 \"$@\" | grep -v '(2)'";
        const QByteArray endless = "exec cat /dev/zero";
        const long before = mostMemory();
        const rlimit small = {100000, RLIM_INFINITY};
        const rlimit unlimited = {RLIM_INFINITY, RLIM_INFINITY};
        for (const QByteArray &dump :
             {half, rowLost, QByteArray("sqlite3 \"$@\"; exit 1"),
              QByteArray("sqlite3 \"$@\" | grep -v COMMIT"), QByteArray("sqlite3 \"$@\" | tail -n +2"),
              QByteArray("sqlite3 \"$@\"; printf COMMIT"),
              QByteArray("sqlite3 \"$@\"; echo 'ROLLBACK; -- due to errors'; echo 'COMMIT;'"), endless}) {
            const StandIn tool(root.path(), dump);
            setrlimit(RLIMIT_FSIZE, &small); // as of a full disk; nothing else ends what is endless
            const bool bothFail = dump == rowLost || digestAfterStaging(RestorableDatabase("d")).isEmpty();
            setrlimit(RLIMIT_FSIZE, &unlimited);
            QVERIFY2(bothFail && (dump == endless || digestAfterStaging(selected).isEmpty()), dump);
            QCOMPARE(leftInStaging(), QStringList());
        }
        QVERIFY(mostMemory() < before + 50000);
        QVERIFY(!digestAfterStaging(selected).isEmpty());
        const StandIn tool(root.path(), "kill -9 $$", "CREATE");
        QVERIFY(digestAfterStaging(selected).isEmpty());
    }

    void endOfADump_data()
    {
        columns<int>("signal");
        row("the operation has to end", 0);
        row("the service is killed", SIGKILL);
    }
    void endOfADump()
    {
        QFETCH(int, signal);
        sql("CREATE TABLE t(v); INSERT INTO t VALUES(1)");
        RestorableDatabase selected("d"); // nothing of a line without end is written
        selected.addSqlCommand("t", "SELECT * FROM t");
        const StandIn tool(root.path(), "echo $$ >" + root.path().toUtf8() + "/child; exec cat /dev/zero");
        const pid_t service = fork();
        if (service == 0) {
            QTimer timer;
            timer.callOnTimeout([&] {
                if (QFile::exists(root.path() + "/end")) {
                    waiter.end(Waiter::End::RepositoryChanged);
                }
            });
            timer.start(20ms);
            _exit(digestAfterStaging(selected).isEmpty() ? 0 : 1);
        }
        const QString child = root.path() + "/child";
        const auto alive = [&] { return QFile::exists("/proc/" + readFile(child).trimmed() + "/exe"); };
        QVERIFY(TestDevice::waitUntil([&] { return !readFile(child).isEmpty() && alive(); }));
        writeFile(root.path() + "/end", {});
        kill(service, signal);
        int status = -1;
        waitpid(service, &status, 0);
        QCOMPARE(status, signal);
        const QDeadlineTimer deadline(1s);
        QVERIFY(TestDevice::waitUntil([&] { return !alive(); }) && !deadline.hasExpired());
        TestDevice::shell("rm " + root.path() + "/end " + child);
    }
};

QTEST_GUILESS_MAIN(tst_dump)
#include "tst_dump.moc"
