#include "commands/Command.h"
#include "platform/DevicePaths.h"
#include "restore/ArchiveListing.h"
#include "restore/DatabaseRestore.h"
#include "restore/DownloadList.h"
#include "restore/LiveData.h"
#include "tests/support/TestDevice.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

/// What a restore does to live data, and what it refuses to do.
class tst_livedata : public QObject
{
    Q_OBJECT

    QTemporaryDir root;

    QString live(const QString &item = {}) const { return root.path() + "/data/VYXApplication/m/" + item; }

    void write(const QString &item, const QByteArray &content) const
    {
        QDir().mkpath(QFileInfo(live(item)).path());
        QFile file(live(item));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(content);
    }

    QByteArray content(const QString &item) const
    {
        QFile file(live(item));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<none>");
    }

    QStringList everything() const
    {
        QStringList found;
        QDirIterator entries(live(), QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                             QDirIterator::Subdirectories);
        while (entries.hasNext()) {
            found << entries.next().mid(live().size());
        }
        found.sort();
        return found;
    }

    /// Run a step in a process of its own that dies in its middle, as a service that is killed.
    static void killed(const std::function<void()> &step)
    {
        const pid_t child = fork();
        if (child == 0) {
            step();
            _exit(0);
        }
        waitpid(child, nullptr, 0);
    }

private Q_SLOTS:
    void init()
    {
        qputenv("VYX_DEVICE_ROOT", root.path().toUtf8());
        QDir(root.path() + "/data").removeRecursively();
        QDir().mkpath(live());
    }

    void failureBringsBack_data()
    {
        QTest::addColumn<bool>("dies");
        QTest::newRow("step fails") << false;
        QTest::newRow("process dies") << true;
    }
    void failureBringsBack()
    {
        QFETCH(bool, dies);
        write("f", "old");
        write("d.data", "old db");
        write("d.data-wal", "old wal");
        write("tree/sub/x", "old x");
        QVERIFY(symlink("f", live("link").toUtf8().constData()) == 0);
        const QStringList before = everything();
        const auto steps = [&](bool finish) {
            auto *file = new LiveData(live("f"), LiveData::Kind::File);
            auto *database = new LiveData(live("d.data"), LiveData::Kind::Database);
            auto *tree = new LiveData(live("tree"), LiveData::Kind::Directory);
            auto *link = new LiveData(live("link"), LiveData::Kind::File);
            auto *absent = new LiveData(live("new/parent/file"), LiveData::Kind::File);
            auto *absentDatabase = new LiveData(live("e.data"), LiveData::Kind::Database);
            const bool aside = file->moveAside() && database->moveAside() && tree->copyAside() &&
                               link->moveAside() && absent->moveAside() && absentDatabase->moveAside();
            for (const char *item :
                 {"f", "d.data", "d.data-journal", "link", "new/parent/file", "e.data", "e.data-journal"}) {
                write(item, "half of the new");
            }
            QFile::remove(live("tree/sub/x"));
            write("tree/sub/x", "new x");
            write("tree/more", "new");
            if (finish) {
                for (LiveData *data : {file, database, tree, link, absent, absentDatabase}) {
                    delete data;
                }
            }
            return aside;
        };
        if (dies) {
            killed([&] { steps(false); });
            QVERIFY(everything().join(' ').contains(".saverestore-aside."));
            LiveData::recoverAll(DevicePaths::dataRoot());
            QDir(live("new")).removeRecursively();
        } else {
            QVERIFY(steps(true));
        }
        QCOMPARE(everything(), before);
        QCOMPARE(content("f"), "old");
        QCOMPARE(content("d.data"), "old db");
        QCOMPARE(content("d.data-wal"), "old wal");
        QCOMPARE(content("tree/sub/x"), "old x");
        QVERIFY(QFileInfo(live("link")).isSymLink());
    }

    void recoveryCutOff_data()
    {
        QTest::addColumn<QStringList>("aside");
        QTest::addColumn<QStringList>("place");
        QTest::addColumn<QByteArray>("database");
        QTest::addColumn<QByteArray>("log");
        // Content "old" is what was there before, "new" what the restore wrote.
        QTest::newRow("only the log was moved") << QStringList{"d.data-wal=old"} << QStringList{"d.data=old"}
                                                << QByteArray("old") << QByteArray("old");
        QTest::newRow("all moved") << QStringList{"d.data=old", "d.data-wal=old"}
                                   << QStringList{"d.data=new", "d.data-wal=new"} << QByteArray("old")
                                   << QByteArray("old");
        QTest::newRow("no log before")
            << QStringList{"d.data=old"} << QStringList{"d.data=new", "d.data-wal=new"} << QByteArray("old")
            << QByteArray("<none>");
        QTest::newRow("database is back already")
            << QStringList{"d.data-wal=old"} << QStringList{"d.data=old"} << QByteArray("old")
            << QByteArray("old");
    }
    void recoveryCutOff()
    {
        QFETCH(QStringList, aside);
        QFETCH(QStringList, place);
        QFETCH(QByteArray, database);
        QFETCH(QByteArray, log);
        write(".saverestore-aside.d.data/.database", {});
        write(".saverestore-new.x/y", "never finished");
        write(".saverestore-old.x/y", "done with");
        for (const QString &file : aside) {
            write(".saverestore-aside.d.data/" + file.section('=', 0, 0), file.section('=', 1).toUtf8());
        }
        for (const QString &file : place) {
            write(file.section('=', 0, 0), file.section('=', 1).toUtf8());
        }
        LiveData::recoverAll(DevicePaths::dataRoot());
        QCOMPARE(content("d.data"), database);
        QCOMPARE(content("d.data-wal"), log);
        QVERIFY(!everything().join(' ').contains(".saverestore"));
        LiveData::recoverAll(DevicePaths::dataRoot());
        QCOMPARE(content("d.data"), database);
    }

    void commitKeepsOwnershipAndMode()
    {
        write("f", "old");
        chmod(live("f").toUtf8().constData(), 0640);
        chmod(live().toUtf8().constData(), 0750);
        {
            LiveData file(live("f"), LiveData::Kind::File);
            LiveData fresh(live("a/b/fresh"), LiveData::Kind::File);
            QVERIFY(file.moveAside() && fresh.moveAside());
            write("f", "new");
            write("a/b/fresh", "new");
            file.commit();
            fresh.commit();
        }
        const auto mode = [&](const QString &item) {
            struct stat status = {};
            stat(live(item).toUtf8().constData(), &status);
            return status.st_mode & 07777;
        };
        QCOMPARE(content("f"), "new");
        QCOMPARE(mode("f"), 0640U);
        QCOMPARE(mode("a/b/fresh"), 0640U);
        QCOMPARE(mode("a/b"), 0750U);
        QCOMPARE(everything(), QStringList({"a", "a/b", "a/b/fresh", "f"}));
    }

    void whatCannotBeSetAsideStays()
    {
        write("f", "old");
        LiveData blocked(live("f/below a file"), LiveData::Kind::File);
        QVERIFY(!blocked.moveAside());
        LiveData longName(live(QString(250, 'x')), LiveData::Kind::File);
        QVERIFY(!longName.moveAside());
        QCOMPARE(everything(), QStringList{"f"});
    }

    void places_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("inside");
        QTest::newRow("plain") << live("a/b") << true;
        QTest::newRow("other module") << root.path() + "/data/VYXApplication/n/x" << false;
        QTest::newRow("name with the same start") << root.path() + "/data/VYXApplication/mm/x" << false;
        QTest::newRow("upwards") << live("../n/x") << false;
        QTest::newRow("elsewhere") << "/etc/passwd" << false;
        QTest::newRow("empty") << "" << false;
        QTest::newRow("through a link") << live("out/x") << false;
        QTest::newRow("through an inner link") << live("in/x") << true;
    }
    void places()
    {
        QFETCH(QString, path);
        QDir().mkpath(live("real"));
        QCOMPARE(symlink("/tmp", live("out").toUtf8().constData()), 0);
        QCOMPARE(symlink("real", live("in").toUtf8().constData()), 0);
        QTEST(LiveData::belongsToModule(path, "m"), "inside");
    }

    void archives_data()
    {
        QTest::addColumn<QString>("make"); // run in a directory that holds w/data/dir with a file
        QTest::addColumn<bool>("inside");
        QTest::newRow("as saved") << "tar -czf a.tar.gz w/data/dir" << true;
        QTest::newRow("odd names") << "touch 'w/data/dir/a -> b' 'w/data/dir/q\"\\x' w/data/dir/ü; ln -s "
                                      "'q\"\\x' 'w/data/dir/l -> m'; tar -czf a.tar.gz w/data/dir"
                                   << true;
        QTest::newRow("inner links")
            << "ln -s ../dir/f w/data/dir/l; ln w/data/dir/f w/data/dir/h; tar -czf a.tar.gz w/data/dir"
            << true;
        QTest::newRow("beside") << "touch w/data/other; tar -czf a.tar.gz w/data/dir w/data/other" << false;
        QTest::newRow("above") << "tar -czf a.tar.gz w/data" << false;
        QTest::newRow("upwards") << "touch w/data/other; tar -czPf a.tar.gz w/data/dir/../other" << false;
        QTest::newRow("absolute") << "tar -czPf a.tar.gz /etc/hostname" << false;
        QTest::newRow("link out") << "ln -s /etc w/data/dir/l; tar -czf a.tar.gz w/data/dir" << false;
        QTest::newRow("relative link out")
            << "ln -s ../../x w/data/dir/l; tar -czf a.tar.gz w/data/dir" << false;
        QTest::newRow("hard link out") << "ln w/data/dir/f w/data/g; tar -cf a.tar w/data/g w/data/dir; tar "
                                          "--delete -f a.tar w/data/g; gzip a.tar"
                                       << false;
        QTest::newRow("the directory is a link")
            << "mv w/data/dir w/data/real; ln -s real w/data/dir; tar -czf a.tar.gz w/data/dir" << false;
    }
    void archives()
    {
        QFETCH(QString, make);
        const QTemporaryDir place;
        TestDevice::shell("cd " + place.path() + " && mkdir -p w/data/dir && echo x > w/data/dir/f && " +
                          make);
        const CommandResult listing = runCommand("tar", archiveListingArguments(place.filePath("a.tar.gz")));
        QVERIFY(listing.succeeded());
        const auto members = parseArchiveListing(listing.output);
        QVERIFY(members && !members->isEmpty());
        QTEST(staysInside(*members, "/w/data/dir"), "inside");
    }

    void downloadLines()
    {
        for (const char *text :
             {"directory /r/logs.tar.gz normal", "database /r/c.dump.gz /data/m/c.data high",
              "file My%20dir++100%25%0A.jpg /data/m/ü$[1] low"}) {
            QCOMPARE(DownloadLine::parse(text).value_or(DownloadLine()).text(), QString(text) + "\n");
        }
        for (const char *text : {"file a low", "directory a b low", "device a b low", ""}) {
            QVERIFY2(!DownloadLine::parse(text), text);
        }
    }

    void dumpsThatAreRefused_data()
    {
        QTest::addColumn<QByteArray>("sql");
        QTest::addColumn<bool>("loads");
        QTest::newRow("good") << QByteArray("BEGIN TRANSACTION;\nCREATE TABLE t(v);\nCOMMIT;\n") << true;
        QTest::newRow("no SQL") << QByteArray("hello\n") << false;
        QTest::newRow("one bad statement")
            << QByteArray("BEGIN;\nCREATE TABLE t(v);\nINSERT INTO u VALUES(1);\nCOMMIT;\n") << false;
        QTest::newRow("shell command") << QByteArray("CREATE TABLE t(v);\n.shell touch TRACE\n") << false;
        QTest::newRow("another database")
            << QByteArray("ATTACH 'TRACE' AS x; CREATE TABLE x.t(v);\n") << false;
        QTest::newRow("full text index")
            << TestDevice::shell("printf \"CREATE VIRTUAL TABLE f USING fts5(x); INSERT INTO f VALUES('a "
                                 "b');\\n.dump\\n\" | sqlite3 :memory:")
            << true;
    }
    void dumpsThatAreRefused()
    {
        QFETCH(QByteArray, sql);
        write("dump", QByteArray(sql).replace("TRACE", live("trace").toUtf8()));
        TestDevice::shell("gzip " + live("dump"));
        QTEST(DatabaseRestore::load(live("dump.gz"), live("x.data")), "loads");
        QVERIFY(!QFile::exists(live("trace")));
    }
};

QTEST_GUILESS_MAIN(tst_livedata)
#include "tst_livedata.moc"
