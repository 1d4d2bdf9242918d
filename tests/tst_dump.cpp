#include "catalogue/ItemNames.h"
#include "platform/core/Waiter.h"
#include "platform/DevicePaths.h"
#include "staging/DatabaseDump.h"
#include "staging/DatabaseStaging.h"
#include "staging/FileStaging.h"
#include "staging/RememberedDigests.h"
#include "tests/support/TestDevice.h"

#include <QDeadlineTimer>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <clocale>
#include <csignal>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace std::chrono_literals;

/// Databases and zipped directories, staged, and read again with the real tools.
class tst_dump : public QObject
{
    Q_OBJECT

    QTemporaryDir root;
    mutable Waiter waiter;
    const QByteArray path = qgetenv("PATH");

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
        const Artefacts all(LinesByModule{});
        RememberedDigests none;
        DatabaseStaging staging("m", all, none, waiter);
        staging.copy(database.getName());
        QString digest;
        waiter.runBeside([&] { digest = staging.stageCopy(database).digest(); });
        return digest;
    }

    QString dumpText(const QString &database) const
    {
        return QString::fromUtf8(TestDevice::shell("zcat '" + stagedDump(database) + "'"));
    }

    QStringList leftInStaging() const
    {
        return QDir(DevicePaths::staged("m")).entryList(QDir::Files | QDir::Hidden);
    }

    /// A script that runs instead of sqlite3 when the last argument begins so, until the test's end.
    void replaceSqlite(const QByteArray &script, const QByteArray &begin = ".dump") const
    {
        const QString tool = root.path() + "/bin/sqlite3";
        writeFile(tool, "#!/bin/sh\nPATH='" + path + "'\nfor last; do :; done\ncase $last in\n" + begin +
                            "*) " + script + " ;;\n*) exec sqlite3 \"$@\" ;;\nesac\n");
        QFile::setPermissions(tool, QFile::ReadOwner | QFile::ExeOwner | QFile::WriteOwner);
        qputenv("PATH", QFile::encodeName(root.path()) + "/bin:" + path);
    }

    QString zipped(const QString &name) const { return root.path() + "/data/VYXApplication/m/z/" + name; }

    /// Run a line in the zipped directory, with the archive as $A.
    QByteArray inZipped(const QString &line) const
    {
        return TestDevice::shell("cd " + zipped({}) + "; A=" + DevicePaths::staged("m") + "/m++z.tar.gz;" +
                                 line);
    }

    /// Archive the directory as somebody who may not read everything.
    static QString digestOfArchive(Waiter &waiter)
    {
        ChecksumLines lines;
        const bool other = getuid() == 0 && seteuid(65534) == 0;
        const Artefacts all(LinesByModule{});
        RememberedDigests none;
        waiter.runBeside([&] {
            FileStaging("m", all, none, lines, waiter)
                .stage({"z", DirectoryItem, true, RestorableOrder::normal});
        });
        return other && seteuid(0) != 0 ? "no way back" : lines.value(0, ChecksumLine({"", ""})).digest();
    }

private Q_SLOTS:
    void init()
    {
        qputenv("VYX_DEVICE_ROOT", root.path().toUtf8());
        TestDevice::shell("cd " + root.path() +
                          " && chmod 755 . && rm -rf * && mkdir -p data/VYXApplication/m/z && "
                          "mkdir -p -m 777 " +
                          DevicePaths::staged("m"));
    }
    void cleanup() { qputenv("PATH", path); }

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
        for (const char *dump :
             {R"(sqlite3 "$@" | head -n 4; kill -9 $$)", R"(sqlite3 "$@"; exit 1)",
              R"(sqlite3 "$@" | grep -v COMMIT)", R"(sqlite3 "$@" | tail -n +2)", R"(sqlite3 "$@"; printf x)",
              R"(sqlite3 "$@"; echo 'ROLLBACK; -- due to errors'; echo 'COMMIT;')"}) {
            replaceSqlite(dump);
            QVERIFY2(digestAfterStaging(selected).isEmpty(), dump);
            QVERIFY2(digestAfterStaging(RestorableDatabase("d")).isEmpty(), dump);
            QCOMPARE(leftInStaging(), QStringList());
        }
        replaceSqlite(R"(sqlite3 "$@" | grep -v '(2)')"); // a row gets lost
        QVERIFY(digestAfterStaging(selected).isEmpty());
        replaceSqlite("kill -9 $$", "CREATE");
        QVERIFY(digestAfterStaging(selected).isEmpty());
    }

    void lineWithoutEnd()
    {
        sql("CREATE TABLE t(v); INSERT INTO t VALUES(1)");
        RestorableDatabase selected("d");
        selected.addSqlCommand("t", "SELECT * FROM t");
        const QString child = root.path() + "/child";
        replaceSqlite("echo $$ >" + child.toUtf8() + "; head -c 300M /dev/zero; exec sleep 60");
        for (const int signal : {0, SIGKILL}) {
            const pid_t service = fork();
            if (service == 0) {
                QTimer timer;
                timer.callOnTimeout([&] {
                    QFile::exists(child + "-end") ? waiter.end(Waiter::End::RepositoryChanged) : void();
                });
                timer.start(20ms);
                _exit(digestAfterStaging(selected).isEmpty() ? 0 : 1);
            }
            const auto tell = [&](const QString &file) {
                return "/proc/" + readFile(child).trimmed() + file;
            };
            const auto printed = [&] {
                return readFile(tell("/io")).split('\n').value(1).mid(7).toLongLong();
            };
            QVERIFY(TestDevice::waitUntil([&] { return printed() >= 300000000; }));
            const QDeadlineTimer deadline(2s);
            writeFile(child + "-end", {});
            kill(service, signal);
            int status = -1;
            rusage used = {};
            wait4(service, &status, 0, &used);
            QCOMPARE(status, signal);
            QVERIFY2(used.ru_maxrss < 200000, qPrintable(QString::number(used.ru_maxrss)));
            QVERIFY(TestDevice::waitUntil([&] { return !QFile::exists(tell("/exe")); }) &&
                    !deadline.hasExpired());
            TestDevice::shell("rm " + child + "*");
        }
    }

    void archive()
    {
        const QString name(200, 'n');
        QStringList names = {"-rf", "two\nlines", "it's", "back\\slash", "ü 日本", name};
        names << "d/" + name + "/" + name;
        QByteArray before;
        for (const char *locale : {"C.UTF-8", "C"}) {
            for (const QString &file : std::as_const(names)) {
                writeFile(zipped(file), file.toUtf8());
            }
            inZipped(
                "mkdir e; ln it\\'s hard; ln -s -- -rf near; ln -s near circle; ln -s .. out; mkfifo pipe;"
                "chmod 6751 hard; echo >$(printf 'x\\377'); find . -exec touch -hd @1234567890.5 {} +");
            QVERIFY(setlocale(LC_ALL, locale) != nullptr);
            const QString digest = digestOfArchive(waiter);
            QCOMPARE(QString(inZipped("zcat $A | md5sum")), digest + "  -\n");
            QVERIFY(before.isEmpty() || before == inZipped("cat $A"));
            QCOMPARE(
                inZipped(
                    "export LC_ALL=C; tar -tzf $A --quoting-style=literal | grep '/z/[^/]*$' | sort -c 2>&1"),
                "");
            before = inZipped("cat $A");
            const QString look = "; find . -printf '%p %y %m %s %Ts %l\\n' | LC_ALL=C sort; cat *";
            const QByteArray left = inZipped("rm out pipe; chmod 751 hard; touch -d @1234567890 ." + look);
            QVERIFY(left.contains("./hard f 751 4 1234567890"));
            QCOMPARE(inZipped("rm -r ../z; tar -xzpf $A -C /; cd ../z" + look), left);
            inZipped("rm -r ../z");
            std::reverse(names.begin(), names.end());
        }
    }

    void archiveOfWhatChanges()
    {
        inZipped("truncate -s 100M a; echo >b; chmod 777 . a");
        QTimer::singleShot(20ms, this,
                           [this] { QFile::remove(zipped("b")) && QFile::resize(zipped("a"), 9); });
        QVERIFY(!digestOfArchive(waiter).isEmpty());
        const QByteArray list = inZipped("tar -tvzf $A; ls");
        QVERIFY2(list.contains(" 104857600 ") && list.endsWith("/a\na\n"), list);
    }

    void noArchive()
    {
        for (const char *damage :
             {"chmod 0 a", "chmod 0 d", "for i in $(seq 1001); do ln -s / l$i; done",
              "n=$(printf %0250d); for i in $(seq 17); do mkdir $n; cd $n; done", "truncate -s 300M a"}) {
            Waiter ended;
            inZipped("mkdir d; echo >d/b; echo >a");
            QVERIFY(!digestOfArchive(ended).isEmpty());
            inZipped(damage);
            if (QString(damage).contains("300M")) {
                QTimer::singleShot(20ms, this, [&] { ended.end(Waiter::End::RepositoryChanged); });
            }
            QVERIFY2(digestOfArchive(ended).isEmpty() && leftInStaging().isEmpty(), damage);
            inZipped("chmod -R u+rwX . ; rm -r ../z; mkdir ../z");
        }
    }
};

QTEST_GUILESS_MAIN(tst_dump)
#include "tst_dump.moc"
