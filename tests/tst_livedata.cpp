#include "commands/Command.h"
#include "platform/core/Waiter.h"
#include "platform/DevicePaths.h"
#include "restore/ArchiveListing.h"
#include "restore/DatabaseRestore.h"
#include "restore/LiveData.h"
#include "tests/support/DataTable.h"
#include "tests/support/TestDevice.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

/// What a restore does to live data, and what it refuses to do.
class tst_livedata : public QObject
{
    Q_OBJECT

    QTemporaryDir root;
    Waiter waiter;

    QString live(const QString &item = {}) const { return root.path() + "/data/VYXApplication/m/" + item; }

    void write(const QString &item, const QByteArray &content) const { writeFile(live(item), content); }
    QByteArray content(const QString &item) const { return readFile(live(item), "<none>"); }

    QStringList everything() const
    {
        const QString find = "find '" + live() + "' -mindepth 1 -printf '%P\\n' | LC_ALL=C sort";
        return QString::fromUtf8(TestDevice::shell(find)).split('\n', Qt::SkipEmptyParts);
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
        columns<bool>("dies");
        row("step fails", false);
        row("process dies", true);
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
            const bool aside = file->moveAside() && database->moveAside() && tree->copyAside(waiter) &&
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
        columns<QStringList, QStringList, QByteArray>("aside", "place", "log");
        // Content "old" is what was there before, "new" what the restore wrote.
        const QStringList restored = {"d.data=new", "d.data-wal=new"};
        row("only the log is aside", QStringList{"d.data-wal=old"}, QStringList{"d.data=old"},
            QByteArray("old"));
        row("all moved", QStringList{"d.data=old", "d.data-wal=old"}, restored, QByteArray("old"));
        row("no log before", QStringList{"d.data=old"}, restored, QByteArray("<none>"));
    }
    void recoveryCutOff()
    {
        QFETCH(QStringList, aside);
        QFETCH(QStringList, place);
        QFETCH(QByteArray, log);
        write(".saverestore-aside.d.data/.database", {});
        write(".saverestore-new.x/y", "never finished");
        write(".saverestore-old.x/y", "done with");
        // Planted: what they stand for is the module, its neighbours, or the directory itself.
        const QStringList planted = {".saverestore-aside.", ".saverestore-aside..", ".saverestore-aside..."};
        for (const QString &name : planted) {
            write(name + "/x", "planted");
        }
        writeFile(live("../other/f"), "other");
        for (const QString &file : aside) {
            write(".saverestore-aside.d.data/" + file.section('=', 0, 0), file.section('=', 1).toUtf8());
        }
        for (const QString &file : place) {
            write(file.section('=', 0, 0), file.section('=', 1).toUtf8());
        }
        LiveData::recoverAll(DevicePaths::dataRoot());
        QCOMPARE(content("d.data"), "old");
        QCOMPARE(content("d.data-wal"), log);
        QCOMPARE(readFile(live("../other/f")), "other");
        for (const QString &name : planted) {
            QDir(live(name)).removeRecursively();
        }
        QVERIFY(!everything().join(' ').contains(".saverestore"));
        LiveData::recoverAll(DevicePaths::dataRoot());
        QCOMPARE(content("d.data"), "old");
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
            file.commit(waiter);
            fresh.commit(waiter);
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

    void places()
    {
        QDir().mkpath(live("real"));
        QCOMPARE(symlink("/tmp", live("out").toUtf8().constData()), 0);
        QCOMPARE(symlink("real", live("in").toUtf8().constData()), 0);
        const QString modules = root.path() + "/data/VYXApplication/";
        const QStringList inside = {modules + "m/a/b", modules + "m/in/x"};
        const QStringList outside = {
            modules + "n/x", modules + "mm/x", modules + "m/../n/x", "/etc/passwd", "", modules + "m/out/x"};
        for (const QString &path : inside + outside) {
            QVERIFY2(LiveData::belongsToModule(path, "m") == inside.contains(path),
                     qPrintable("place: " + path));
        }
    }

    void archives()
    {
        struct Case
        {
            const char *name;
            QString make; // run in a directory that holds w/data/dir with a file
            bool inside;
        };
        const QString pack = "tar -czf a.tar.gz w/data/dir";
        const QString oddFiles = "touch 'w/data/dir/a -> b' 'w/data/dir/q\"\\x' w/data/dir/ü; ";
        const QString addAndDelete = "tar -cf a.tar w/data/g w/data/dir; tar --delete -f a.tar w/data/g; ";
        const QList<Case> cases = {
            {"as saved", pack, true},
            {"odd names", oddFiles + "ln -s 'q\"\\x' 'w/data/dir/l -> m'; " + pack, true},
            {"inner links", "ln -s ../dir/f w/data/dir/l; ln w/data/dir/f w/data/dir/h; " + pack, true},
            {"the service's own name", "mkdir w/data/dir/.saverestore-aside...; " + pack, false},
            {"beside", "touch w/data/other; " + pack + " w/data/other", false},
            {"above", "tar -czf a.tar.gz w/data", false},
            {"upwards", "touch w/data/other; tar -czPf a.tar.gz w/data/dir/../other", false},
            {"absolute", "tar -czPf a.tar.gz /etc/hostname", false},
            {"link out", "ln -s /etc w/data/dir/l; " + pack, false},
            {"relative link out", "ln -s ../../x w/data/dir/l; " + pack, false},
            {"hard link out", "ln w/data/dir/f w/data/g; " + addAndDelete + "gzip a.tar", false},
            {"the directory is a link", "mv w/data/dir w/data/real; ln -s real w/data/dir; " + pack, false}};
        for (const auto &[name, make, inside] : cases) {
            const QTemporaryDir place;
            writeFile(place.filePath("w/data/dir/f"), "x");
            TestDevice::shell("cd " + place.path() + " && " + make);
            const auto listing =
                runCommand(waiter, "tar", archiveListingArguments(place.filePath("a.tar.gz")));
            const auto members = parseArchiveListing(listing.output);
            QVERIFY2(listing.succeeded() && members && !members->isEmpty(), name);
            QVERIFY2(staysInside(*members, "/w/data/dir") == inside, name);
        }
    }

    void dumpsThatAreRefused_data()
    {
        columns<QByteArray, bool>("sql", "loads");
        row("good", QByteArray("BEGIN TRANSACTION;\nCREATE TABLE t(v);\nCOMMIT;\n"), true);
        row("no SQL", QByteArray("hello\n"), false);
        const QByteArray badStatement = "BEGIN;\nCREATE TABLE t(v);\nINSERT INTO u VALUES(1);\nCOMMIT;\n";
        row("one bad statement", badStatement, false);
        row("shell command", QByteArray("CREATE TABLE t(v);\n.shell touch TRACE\n"), false);
        row("another database", QByteArray("ATTACH 'TRACE' AS x; CREATE TABLE x.t(v);\n"), false);
        const QByteArray fullTextIndex =
            TestDevice::shell("printf \"CREATE VIRTUAL TABLE f USING fts5(x); INSERT INTO f VALUES('a "
                              "b');\\n.dump\\n\" | sqlite3");
        row("full text index", fullTextIndex, true);
    }
    void dumpsThatAreRefused()
    {
        QFETCH(QByteArray, sql);
        write("dump", QByteArray(sql).replace("TRACE", live("trace").toUtf8()));
        TestDevice::shell("gzip " + live("dump"));
        QTEST(DatabaseRestore::load(waiter, live("dump.gz"), live("x.data")), "loads");
        QVERIFY(!QFile::exists(live("trace")));
    }
};

QTEST_GUILESS_MAIN(tst_livedata)
#include "tst_livedata.moc"
