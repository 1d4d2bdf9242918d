#include "platform/core/Waiter.h"
#include "platform/DevicePaths.h"
#include "restore/ArchiveRestore.h"
#include "restore/LiveData.h"
#include "restore/Replacement.h"
#include "restore/RestoreNote.h"
#include "tests/support/DataTable.h"
#include "tests/support/TestDevice.h"

#include <QTimer>

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

    /// Write "name=content" files below a prefix.
    void writeAll(const QString &prefix, const QStringList &files) const
    {
        for (const QString &file : files) {
            write(prefix + file.section('=', 0, 0), file.section('=', 1).toUtf8());
        }
    }

private Q_SLOTS:
    void init()
    {
        qputenv("VYX_DEVICE_ROOT", root.path().toUtf8());
        TestDevice::shell("rm -rf '" + root.path() + "'/*");
        QDir().mkpath(live());
    }

    void unfinishedReplacement()
    {
        for (const bool dies : {false, true}) {
            init();
            writeAll("", {"f=old", "tree/x=old x"});
            const QStringList before = everything();
            const pid_t child = fork();
            if (child == 0) {
                RestoreNote::write({"m", "../elsewhere"});
                std::vector<std::unique_ptr<Replacement>> all;
                for (const QString item : {"f", "tree", "new/parent/file"}) {
                    all.push_back(std::make_unique<Replacement>(live(item)));
                    if (!all.back()->prepare()) {
                        qFatal("no place for %s", qPrintable(item));
                    }
                    writeFile(all.back()->path() + (item == "tree" ? "/x" : ""), "half of the new");
                }
                if (!dies) {
                    all.clear();
                }
                _exit(0); // as a service that is killed
            }
            waitpid(child, nullptr, 0);
            if (dies) {
                QVERIFY(everything().join(' ').contains(".saverestore-"));
                const QString unnoted = live("../n/.saverestore-incoming.1");
                for (const QString &left :
                     {unnoted, root.filePath("data/elsewhere/.saverestore-incoming.1")}) {
                    writeFile(left, "stays");
                }
                LiveData::recoverNoted();
                QCOMPARE(RestoreNote::read(), std::optional(QStringList()));
                LiveData::recoverWithoutNote(waiter);
                QVERIFY(QFile::exists(unnoted));
                QFile::remove(DevicePaths::restoreNote());
                LiveData::recoverWithoutNote(waiter);
                QVERIFY(!QFile::exists(unnoted) && RestoreNote::read());
                QVERIFY(QFile::exists(root.filePath("data/elsewhere/.saverestore-incoming.1")));
                QDir(live("new")).removeRecursively();
            }
            QCOMPARE(everything(), before);
            QCOMPARE(content("f") + content("tree/x"), "oldold x");
        }
    }

    void recoveryCutOff()
    {
        // What is aside, in the place, and of the log afterwards: "old" was there before, "new" was restored.
        const QList<std::tuple<QStringList, QStringList, QByteArray>> cases = {
            {{"d.data-wal=old"}, {"d.data=old"}, "old"},
            {{"d.data=old", "d.data-wal=old"}, {"d.data=new", "d.data-wal=new"}, "old"},
            {{"d.data=old"}, {"d.data=new", "d.data-wal=new"}, "<none>"}};
        for (const auto &[aside, place, log] : cases) {
            init();
            writeAll(".saverestore-",
                     {"aside.d.data/.database", "new.x/y=never finished", "old.x/y=done with"});
            // Planted: what they stand for is the module, its neighbours, or the directory itself.
            const QStringList planted = {".saverestore-aside.", ".saverestore-aside..",
                                         ".saverestore-aside..."};
            for (const QString &name : planted) {
                write(name + "/x", "planted");
            }
            writeFile(live("../other/f"), "other");
            writeAll(".saverestore-aside.d.data/", aside);
            writeAll("", place);
            LiveData::recoverAll(DevicePaths::dataRoot());
            QCOMPARE(content("d.data") + content("d.data-wal"), "old" + log);
            QCOMPARE(content("../other/f"), "other");
            for (const QString &name : planted) {
                QDir(live(name)).removeRecursively();
            }
            QVERIFY(!everything().join(' ').contains(".saverestore"));
            LiveData::recoverAll(DevicePaths::dataRoot());
            QCOMPARE(content("d.data"), "old");
        }
    }

    void replacementKeepsOwnershipAndMode()
    {
        write("f", "old");
        TestDevice::shell("cd " + live() + "; chmod 640 f; chmod 750 .");
        for (const QString &item : {QString("f"), QString("a/b/fresh"), QString(255, 'x')}) {
            Replacement replacement(live(item));
            QVERIFY(replacement.prepare());
            writeFile(replacement.path(), "new");
            QVERIFY(replacement.replace(waiter));
        }
        QCOMPARE(content("f"), "new");
        QCOMPARE(TestDevice::shell("cd " + live() + "; stat -c %a f a/b/fresh a/b"), "640\n640\n750\n");
        QVERIFY(!Replacement(live("f/below a file")).prepare());
        QCOMPARE(everything(), QStringList({"a", "a/b", "a/b/fresh", "f", QString(255, 'x')}));
    }

    void places()
    {
        TestDevice::shell("cd " + live() + "; mkdir real; ln -s /tmp out; ln -s real in");
        const QString modules = root.path() + "/data/VYXApplication/";
        const QStringList inside = {modules + "m/a/b", modules + "m/in/x"};
        const QStringList outside = {
            modules + "n/x", modules + "mm/x", modules + "m/../n/x", "/etc/passwd", "", modules + "m/out/x"};
        for (const QString &path : inside + outside) {
            QVERIFY2(LiveData::belongsToModule(path, "m") == inside.contains(path),
                     qPrintable("place: " + path));
        }
    }

    /// All that is below the device root, or all but the directory "d" of the module.
    QByteArray state(bool whole) const
    {
        const QString prune = whole ? "" : "-path ./data/VYXApplication/m/d -prune -o ";
        return TestDevice::shell("cd '" + root.path() + "'; { find . " + prune +
                                 "-printf '%p %y %m %U %l\\n'; find . " + prune +
                                 "-type f -printf '%p %n ' -exec md5sum {} ';'; } | LC_ALL=C sort");
    }

    void archives_data()
    {
        // How the archives 1, 2, 3 are made of a directory "d" with a file "f", in shell; what is true in the
        // live directory after they were restored one after the other, or why the last is refused.
        columns<QString, QString>("make", "shows");
        const QString out = "leads out of";
        const QString broken = "missing or broken";
        row("through an inner link", "v d/sub/x; ln -s sub d/l; through", out);
        row("through a live link", "v d/out/v; t -czf 1 d/f d/out/v", out);
        row("hard link out", "ln d/f d2; t -cf a d2 d; tar --delete -Pf a $P/d2; gzip -c a > 1", out);
        row("absolute", "tar -czPf 1 /etc/hostname", out);
        row("upwards", "touch d2; t -czf 1 d d/../d2", out);
        row("beside", "touch d2; t -czf 1 d d2", out);
        row("above", "tar -czPf 1 --no-rec --transform \"s,^d,$P,\" d", out);
        row("the service's own name", "v d/.saverestore-aside./x; pack", out);
        row("the directory is a link", "mv d x; ln -s x d; pack", out);
        row("terabytes", "truncate -s 8T d/huge; t -S -czf 1 d", "that may be filled");
        row("too many members", "cd d; seq 60 | xargs touch; cd ..; pack", "more than 50 members");
        row("too many above", "x=d/$(seq -s / 60)/x; v $x; t -czf 1 $x", "more than 50 members");
        row("long path", "tar -cPzf 1 --transform s,^,$P/d/$(printf '%0250d/' $(seq 17)), d/f", "4096 bytes");
        row("cut off", "head -c 9999 /dev/urandom > d/x; pack a; head -c 5000 a > 1", broken);
        row("wrong digest", "pack; echo 00000000000000000000000000000000 > digest", "its digest is");
        row("no tar", "head -c 9999 /dev/urandom | gzip > 1", broken);
        row("no gzip", "t -cf 1 d", broken);
        row("compressed twice", "pack a; gzip -c a > 1", broken);
        row("rubbish behind it", "pack; cp 1 a; echo x >> 1; zcat a | md5sum > digest", broken);
        row("wrong checksum", "pack; zcat 1 | md5sum > digest; { head -c -8 1; echo 1234567; } > a; mv a 1",
            broken);
        row("no members", "tar -czf 1 -T /dev/null", broken);
        row("links out", "ln -s /etc d/l; ln -s ../../x d/m; ln -s ../d d/i; pack",
            "[ ! -L l -a ! -L m -a -L i ]");
        row("out by a link", "v d/q/x; ln -s .. d/q/a; ln -s q/a/../x d/b; pack", "[ -L q/a -a ! -L b ]");
        row("through a link out", "ln -s $R/outside d/l; through", "[ ! -L l -a -f l/v ]");
        row("live link replaced", "v d/out/v; pack", "[ ! -L out -a -f out/v ]");
        const QString second = "rm d/q/a; ln -s .. d/q/a; ln -s q/a/.. d/b; pack 2; rm d/b; ";
        const QString third = "v d/b/outside/v; t -czf 3 d/b/outside/v";
        row("three in a row", "v d/q/x; ln -s ../.. d/q/a; pack; " + second + third, "[ -d b/outside ]");
        row("link to no file", "ln -s f d/s; ln -P d/s d/t; pack", "[ ! -L s -o ! -L t ]");
        row("FIFO, device", "mkfifo d/p; fakeroot sh -c \"mknod d/n c 1 3; $T -czf 1 d\"",
            "[ ! -e p -a ! -e n ]");
        row("set-id", "chmod 6755 d/f; mkdir -m 2750 d/g; pack",
            "[ \"$(stat -c %a f g | xargs)\" = '755 2750' ]");
        const QString odd = "/$(printf 'q\"\\134\\377\\303\\274')";
        row("odd names", "touch \"d" + odd + "\" 'd/a\n>b'; pack; rm -r d",
            "[ -f 'a\n>b' -a -f \"." + odd + "\" ]");
        row("inner links", "ln -s /$P/d/f d/a; ln -s f d/l; ln d/f d/h; pack",
            "[ $(cat a l) = nn -a f -ef h ]");
        row("modes, times", "mkdir -m 555 d/e; touch -d @5 d/f d/e; touch -d @7 d; chmod 750 d; pack",
            "[ \"$(stat -c %a-%Y e f . | xargs)\" = '555-5 644-5 750-7' -a -z \"$(ls e)\" ]");
        row("kinds that changed", "rm d/f; v d/f/x; touch d/sub; pack", "[ -f f/x -a -f sub ]");
        const QString owned =
            "[ $(id -u) != 0 -o \"$(stat -c %u-%g . f out added | xargs)\" = '7-8 7-8 0-0 0-0' ]";
        row("owner", "[ $(id -u) != 0 ] || chown 7:8 $L; pack", owned);
        row("holes, parts",
            "truncate -s 9M d/h; echo x >> d/h; t -S -cf a d; head -c 700 a | gzip > 1; "
            "tail -c +701 a | gzip >> 1",
            "[ $(stat -c %s h) = 9437186 -a $(tail -c 2 h) = x ]");
        row("no live directory", "rm -r $L; pack", "[ -f f ]");
        row("a live link", "mv $L $R/data/d; ln -s $R/data/d $L; pack", "[ ! -L ../d -a ! -e added ]");
    }
    void archives()
    {
        QFETCH(QString, make);
        QFETCH(QString, shows);
        const bool refused = !shows.startsWith('[');
        writeAll("d/", {"f=old", "added=since", "sub/x=y"});
        writeFile(root.filePath("outside/v"), "victim");
        QVERIFY(QFile::link(root.filePath("outside"), live("d/out")));
        const QTemporaryDir place;
        writeFile(place.filePath("d/f"), "n");
        const QString prelude =
            "cd %1; R=%2; P=%3; L=/$P/d; T=\"tar -P --transform s,^d,$P/d,S\"; t() { $T \"$@\"; }; "
            "v() { mkdir -p \"${1%/*}\"; touch \"$1\"; }; pack() { t -czf ${1-1} d; }; "
            "through() { t -cf a d; rm d/l; v d/l/v; t -rf a d/l/v; gzip -c a > 1; }; umask 022; chmod 755 "
            "d; chmod 644 d/f; ";
        TestDevice::shell(prelude.arg(place.path(), root.path(), live().mid(1).chopped(1)) + make);
        const QFileInfo there(live("d"));
        const QByteArray added = there.isDir() && !there.isSymLink() ? "since" : "<none>";
        const QByteArray before = state(refused);
        QString error = "no archive";
        for (const QString &file : QDir(place.path()).entryList({"1", "2", "3"})) {
            const QString digest =
                TestDevice::shell("cd " + place.path() + "; cat digest || zcat " + file + " | md5sum");
            ArchiveRestore archive(place.filePath(file), live("d"), waiter, 50);
            error = archive.restore(digest.left(32)) ? "restored" : archive.errorText();
        }
        QVERIFY2(error.contains(refused ? shows : "restored"), qPrintable(error));
        QCOMPARE(state(refused), before);
        QCOMPARE(content("d/added"), added);
        QVERIFY(refused || TestDevice::shell("cd " + live("d") + " && " + shows + " && echo yes") == "yes\n");
    }

    void archiveBrokenOff()
    {
        write("d/f", "old");
        const QString pack = "cd %1; truncate -s 100M h; tar -czPf a --transform s,^,%2/, h; zcat a | md5sum";
        const QString digest = TestDevice::shell(pack.arg(root.path(), live("d"))).left(32);
        const QByteArray before = state(true);
        Waiter ending;
        QTimer::singleShot(0, [&] { ending.end(Waiter::End::RepositoryChanged); });
        QVERIFY(!ArchiveRestore(root.filePath("a"), live("d"), ending).restore(digest));
        QCOMPARE(state(true), before);
        QVERIFY(ArchiveRestore(root.filePath("a"), live("d"), waiter).restore(digest));
    }
};

QTEST_GUILESS_MAIN(tst_livedata)
#include "tst_livedata.moc"
