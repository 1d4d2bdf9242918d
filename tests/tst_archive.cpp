#include "platform/core/Waiter.h"
#include "platform/DevicePaths.h"
#include "staging/FileStaging.h"
#include "tests/support/DataTable.h"
#include "tests/support/TestDevice.h"

#include <QTemporaryDir>
#include <QTimer>

#include <clocale>
#include <csignal>
#include <sys/resource.h>
#include <unistd.h>

using namespace std::chrono_literals;

/// Zipped directories, staged and looked at with tar.
class tst_archive : public QObject
{
    Q_OBJECT

    QTemporaryDir root;

    QString live(const QString &name) const { return root.path() + "/data/VYXApplication/m/z/" + name; }
    static QString archive() { return DevicePaths::staged("m") + "/m++z.tar.gz"; }
    QByteArray shell(const QString &line) const
    {
        return TestDevice::shell("cd " + live({}) + "; A=" + archive() + "; " + line);
    }

    /// The digest that staging comes to, as somebody who may not read everything.
    static QString staged(Waiter &waiter)
    {
        ChecksumLines lines;
        if (getuid() == 0 && seteuid(65534) != 0) {
            return "not staged";
        }
        FileStaging("m", lines, waiter).stage({"z", DirectoryItem, true, RestorableOrder::normal});
        return getuid() == 0 && seteuid(0) != 0 ? "no way back"
                                                : lines.value(0, ChecksumLine({"", ""})).digest();
    }

private Q_SLOTS:
    void initTestCase() { ::signal(SIGXFSZ, SIG_IGN); }

    void init()
    {
        qputenv("VYX_DEVICE_ROOT", root.path().toUtf8());
        TestDevice::shell("rm -rf " + root.path() + "/data " + archive() + "; mkdir -p -m 777 " +
                          DevicePaths::staged("m") + "; chmod 755 " + root.path());
    }

    void sameBytes()
    {
        const QString name(200, 'n');
        QStringList names = {"-rf", "two\nlines", "it's", "back\\slash", "ü 日本", "d/" + name + "/" + name,
                             name};
        QByteArray before;
        for (const char *locale : {"C", "C.UTF-8"}) {
            for (const QString &file : std::as_const(names)) {
                writeFile(live(file), file.toUtf8());
            }
            shell("mkdir e; ln it\\'s hard; ln -s -- -rf near; ln -s near circle; ln -s .. out; mkfifo pipe;"
                  "chmod 6751 hard; echo >$(printf 'x\\377'); find . -exec touch -hd @1234567890.5 {} +");
            const QByteArray present = setlocale(LC_ALL, nullptr);
            QVERIFY(setlocale(LC_ALL, locale) != nullptr);
            Waiter waiter;
            const QString digest = staged(waiter);
            setlocale(LC_ALL, present);
            QCOMPARE(shell("zcat $A | md5sum"), (digest + "  -\n").toUtf8());
            QVERIFY(before.isEmpty() || before == readFile(archive()));
            before = readFile(archive());
            const QString look = "; find . -printf '%p %y %m %s %Ts %l\\n' | LC_ALL=C sort; cat *";
            const QByteArray left = shell("rm out pipe; chmod 751 hard; touch -d @1234567890 ." + look);
            QVERIFY(left.contains("./hard f 751 4 1234567890"));
            QCOMPARE(shell("rm -r ../z; tar -xzpf $A -C /; cd ../z" + look), left);
            shell("rm -r ../z");
            std::reverse(names.begin(), names.end());
        }
    }

    void changesMeanwhile()
    {
        writeFile(live("b"), {});
        shell("truncate -s 100M a; chmod 777 . a");
        Waiter waiter;
        QTimer::singleShot(20ms, this,
                           [this] { QVERIFY(QFile::remove(live("b")) && QFile::resize(live("a"), 9)); });
        QVERIFY(!staged(waiter).isEmpty());
        const QByteArray list = shell("tar -tvzf $A; ls");
        QVERIFY2(list.contains("104857600") && list.endsWith("/a\na\n"), list);
    }

    void noArchive_data()
    {
        columns<QString>("damage");
        row("file that cannot be read", QString("chmod 0 a"));
        row("directory that cannot be read", QString("chmod 0 d"));
        row("many links out", QString("for i in $(seq 1001); do ln -s / l$i; done"));
        row("long path", "for i in $(seq 17); do mkdir " + QString(250, 'n') + "; cd n*; done");
        row("no space", QString("head -c 200000 /dev/urandom >a"));
        row("the operation ends", QString("truncate -s 300M a"));
    }
    void noArchive()
    {
        QFETCH(QString, damage);
        writeFile(live("a"), "a");
        writeFile(live("d/b"), "b");
        const rlimit small = {150000, RLIM_INFINITY};
        const rlimit unlimited = {RLIM_INFINITY, RLIM_INFINITY};
        Waiter waiter;
        QVERIFY(!staged(waiter).isEmpty());
        shell(damage);
        if (damage.contains("300M")) {
            QTimer::singleShot(20ms, this, [&] { waiter.end(Waiter::End::RepositoryChanged); });
        }
        setrlimit(RLIMIT_FSIZE, damage.contains("random") ? &small : &unlimited);
        const QString digest = staged(waiter);
        setrlimit(RLIMIT_FSIZE, &unlimited);
        QCOMPARE(digest, QString());
        QVERIFY(!QFile::exists(archive()));
    }
};

QTEST_GUILESS_MAIN(tst_archive)
#include "tst_archive.moc"
