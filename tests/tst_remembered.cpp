#include "platform/core/Waiter.h"
#include "platform/Descriptor.h"
#include "platform/DevicePaths.h"
#include "staging/DatabaseStaging.h"
#include "staging/FileStaging.h"
#include "staging/RememberedDigests.h"
#include "tests/support/DataTable.h"
#include "tests/support/TestDevice.h"

#include <QCryptographicHash>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QThread>

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/mman.h>
#include <utility>

/// What is remembered of unchanged data is used, and never of data that have changed, whatever hides it.
class tst_remembered : public QObject
{
    Q_OBJECT

    QTemporaryDir root;
    mutable Waiter waiter;
    StampRules rules;
    const QString url = "/somewhere";

    QString live(const QString &name) const { return root.path() + "/data/VYXApplication/m/" + name; }
    QByteArray shell(const QString &line) const { return TestDevice::shell("cd " + live({}) + "; " + line); }
    QByteArray digestsFile() const { return readFile(DevicePaths::rememberedDigests()); }

    static void store(char *page, char value) { *const_cast<volatile char *>(page) = value; }

    /// The digest that an operation stages: of a file, a database by its name without ".data", or a zipped
    /// directory. Something may happen after what has to happen in the pause.
    QString staged(const QString &name, const std::function<void()> &meanwhile = {})
    {
        RememberedDigests remembered(rules);
        remembered.begin(waiter, url, RememberedDigests::Purpose::Save);
        const Artefacts artefacts(LinesByModule{{"m", known}});
        ChecksumLines lines;
        if (QFile::exists(live(name + ".data"))) {
            DatabaseStaging staging("m", artefacts, remembered, waiter);
            staging.copy(name);
            (meanwhile ? meanwhile : [] {})();
            lines << staging.stageCopy(RestorableDatabase(name));
        } else {
            const bool zipped = QFileInfo(live(name)).isDir();
            FileStaging("m", artefacts, remembered, lines, waiter)
                .stage({name, zipped ? DirectoryItem : FileItem, zipped, RestorableOrder::normal});
        }
        remembered.store();
        known = lines;
        return lines.value(0, ChecksumLine({"", ""})).digest();
    }

    /// The same when nothing was remembered.
    QString digestOf(const QString &name)
    {
        QFile::remove(DevicePaths::rememberedDigests());
        return staged(name);
    }

    /// What another operation would take without reading; `state` is what is there now.
    QString believed(const QString &name, const QString &repository = "/somewhere")
    {
        RememberedDigests remembered(rules);
        remembered.begin(waiter, repository, RememberedDigests::Purpose::Restore);
        struct stat status = {};
        stat(QFile::encodeName(live(name)).constData(), &status);
        return remembered.find("m/" + name, contentState(status));
    }

    ChecksumLines known; ///< what the repository has

private Q_SLOTS:
    void initTestCase()
    {
        qputenv("VYX_DEVICE_ROOT", root.path().toUtf8());
        TestDevice::shell("mkdir -p " + live("z/sub") + " " + DevicePaths::staged("m"));
        shell("for f in same back renamed mapped twice plain second tenth z/a z/sub/b; do printf old > $f; "
              "done;"
              "for d in d w p; do sqlite3 $d.data 'CREATE TABLE t(v)'; done;"
              "sqlite3 w.data 'PRAGMA journal_mode=WAL; INSERT INTO t VALUES(1)'");
        QThread::sleep(4);
        if (staged("plain") != staged("plain") || believed("plain").isEmpty()) {
            QSKIP("the time stamps of this file system do not tell enough");
        }
    }
    void init()
    {
        rules = {};
        known.clear();
        QFile::remove(DevicePaths::rememberedDigests());
    }

    void changesAreSeen_data()
    {
        columns<QString, QString>("name", "change");
        row("same size", QString("same"), QString("printf new > same"));
        row("times set back", QString("back"),
            QString("touch -r back /tmp/$$; printf new > back; touch -r /tmp/$$ back; rm /tmp/$$"));
        row("renamed over", QString("renamed"),
            QString("printf new > x; touch -r renamed x; chmod --reference=renamed x; mv x renamed"));
        row("member", QString("z"), QString("printf new > z/sub/b"));
        row("new member, times set back", QString("z"),
            QString("touch -r z /tmp/$$; touch z/new; touch -r /tmp/$$ z; rm /tmp/$$"));
        row("database", QString("d"), QString("sqlite3 d.data 'INSERT INTO t VALUES(2)'"));
    }
    void changesAreSeen()
    {
        QFETCH(QString, name);
        QFETCH(QString, change);
        const QString before = staged(name);
        const QByteArray remembered = digestsFile();
        QCOMPARE(staged(name), before);
        QVERIFY(remembered.contains("m/" + name.toUtf8()) || name == "z");
        shell(change);
        const QString after = staged(name);
        QVERIFY(after != before);
        QCOMPARE(digestOf(name), after);
    }

    /// The second change leaves the size, and within one step of the clock the time stamps, as they are.
    void changedTwiceAtOnce()
    {
        staged("twice");
        for (int round = 0; round < 20; ++round) {
            writeFile(live("twice"), "n" + QByteArray::number(10 + round));
            staged("twice");
            writeFile(live("twice"), "m" + QByteArray::number(10 + round));
            const QString second = staged("twice");
            QCOMPARE(second,
                     QString::fromLatin1(
                         QCryptographicHash::hash(readFile(live("twice")), QCryptographicHash::Md5).toHex()));
        }
    }

    void mapping()
    {
        const Descriptor file(open(QFile::encodeName(live("mapped")).constData(), O_RDWR | O_CLOEXEC));
        char *const page = static_cast<char *>(mmap(nullptr, 3, PROT_WRITE, MAP_SHARED, file.number(), 0));
        QVERIFY(page != MAP_FAILED);
        QString last = staged("mapped");
        for (char value = 'a'; value < 'e'; ++value) {
            store(page, value); // the page is clean, or waits for the disk since the last round
            const QString now = staged("mapped");
            QVERIFY(now != last);
            last = now;
            store(page + 1, value);
            if (value == 'b') {
                QThread::sleep(4); // the change was some time ago, and the page waits still
            }
        }
        munmap(page, 3);
    }

    void writeAheadLog()
    {
        sqlite3 *user = nullptr;
        QCOMPARE(sqlite3_open(QFile::encodeName(live("w.data")).constData(), &user), SQLITE_OK);
        const QString before = staged("w");
        QCOMPARE(staged("w"), before);
        sqlite3_exec(user, "INSERT INTO t VALUES(2)", nullptr, nullptr, nullptr);
        const QString logged = staged("w"); // the file itself is as it was
        QVERIFY(logged != before);
        sqlite3_exec(user, "PRAGMA wal_checkpoint; INSERT INTO t VALUES(3)", nullptr, nullptr, nullptr);
        const QString third = staged("w");
        QVERIFY(third != logged && third != before);
        sqlite3_close(user);
        QCOMPARE(staged("w"), digestOf("w"));
    }

    void changedAfterThePause()
    {
        const QString before = staged("p", [&] { shell("sqlite3 p.data 'INSERT INTO t VALUES(2)'"); });
        QVERIFY(staged("p") != before);
    }

    void clockThatIsWrong()
    {
        staged("plain");
        QVERIFY(!believed("plain").isEmpty());
        rules.now = [] { return qint64{0}; }; // 1970
        QCOMPARE(believed("plain"), "");
        staged("plain");
        rules = {};
        QCOMPARE(believed("plain"), ""); // nothing was entered
        rules.builtAt = rules.now();
        staged("plain");
        QCOMPARE(believed("plain"), "");
    }

    void fileThatIsNotInOrder()
    {
        staged("plain");
        const QByteArray good = digestsFile();
        QRandomGenerator chance(1);
        for (int round = 0; round < 200; ++round) {
            QByteArray bad = good;
            const auto place = chance.bounded(bad.size());
            if (round % 2 == 0) {
                bad[place] = static_cast<char>(bad.at(place) ^ static_cast<char>(1 + chance.bounded(255)));
            } else {
                bad.truncate(place);
            }
            writeFile(DevicePaths::rememberedDigests(), bad);
            QCOMPARE(believed("plain"), "");
        }
        writeFile(DevicePaths::rememberedDigests(), good);
        QVERIFY(!believed("plain").isEmpty());
        for (const QString &place : {DevicePaths::rememberedDigests(), live("../VYXSaveRestore")}) {
            TestDevice::shell("chmod g+w " + place);
            QCOMPARE(believed("plain"), "");
            TestDevice::shell("chmod g-w " + place);
        }
        // The same content elsewhere: the data directory of another device.
        const QTemporaryDir other;
        TestDevice::shell("cp -a " + root.path() + "/. " + other.path());
        qputenv("VYX_DEVICE_ROOT", other.path().toUtf8());
        const QString foreign = believed("plain"); // of the first device's file, which is unchanged
        qputenv("VYX_DEVICE_ROOT", root.path().toUtf8());
        QCOMPARE(foreign, "");
        QVERIFY(!believed("plain").isEmpty());
    }

    /// What hides from all time stamps is found by the tenth save.
    void everyTenthSaveReads()
    {
        const QString right = staged("tenth");
        QByteArray wrong = digestsFile();
        wrong.replace(QByteArray::fromHex(right.toLatin1()), QByteArray(16, 'x'));
        wrong.chop(16);
        wrong += QCryptographicHash::hash(wrong, QCryptographicHash::Md5);
        writeFile(DevicePaths::rememberedDigests(), wrong);
        QVERIFY(believed("tenth") != right && !believed("tenth").isEmpty());
        int saves = 1;
        while (staged("tenth") != right && saves < 20) {
            ++saves;
        }
        QVERIFY(saves <= 10);
        QCOMPARE(believed("tenth"), right);
    }

    /// A database that was put back is saved with the digest that it had, in this repository alone.
    void restoredDatabases()
    {
        const QString saved(32, 'a');
        RememberedDigests remembered(rules);
        remembered.begin(waiter, url, RememberedDigests::Purpose::Restore);
        shell("sqlite3 d.data 'INSERT INTO t VALUES(3)'");
        const Descriptor database(open(QFile::encodeName(live("d.data")).constData(), O_RDWR | O_CLOEXEC));
        QVERIFY(TestDevice::waitUntil([&] { return remembered.enterRestored("m/d.data", database, saved); }));
        remembered.store();
        QCOMPARE(believed("d.data"), ""); // too young
        QThread::sleep(4);
        QCOMPARE(believed("d.data"), saved);
        QCOMPARE(staged("d"), saved);
        QCOMPARE(believed("d.data", "/elsewhere"), "");
        shell("sqlite3 d.data 'INSERT INTO t VALUES(4)'");
        QVERIFY(staged("d") != saved);
    }
};

QTEST_GUILESS_MAIN(tst_remembered)
#include "tst_remembered.moc"
