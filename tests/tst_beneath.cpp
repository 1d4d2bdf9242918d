#include "platform/Beneath.h"
#include "tests/support/Files.h"

#include <QTemporaryDir>
#include <QTest>

#include <unistd.h>

/// What opens below a directory and what does not, by both ways to look up.
class tst_beneath : public QObject
{
    Q_OBJECT

    using State = Beneath::State;

    static State regular(const Beneath &place, const char *path) { return place.openRegular(path).state; }

private Q_SLOTS:
    void opening()
    {
        const QTemporaryDir place;
        const QString root = place.path() + "/root";
        const QByteArray above = QFile::encodeName(place.path());
        writeFile(root + "/dir/file", "inside");
        QVERIFY(QDir().mkpath(root + "/closed"));
        writeFile(place.path() + "/secret/file", "outside");
        const QList<std::pair<QByteArray, QByteArray>> links = {{"near", "dir/file"},
                                                                {"absolute", above + "/root/dir/file"},
                                                                {"linked", "dir"},
                                                                {"far", "../secret"},
                                                                {"circle", "circle"},
                                                                {"stolen", above + "/secret/file"},
                                                                {"magic", "/proc/self/root/etc/passwd"}};
        for (const auto &[name, target] : links) {
            QCOMPARE(symlink(target.constData(), (above + "/root/" + name).constData()), 0);
        }
        QCOMPARE(mkfifo((above + "/root/pipe").constData(), 0600), 0);
        QCOMPARE(chmod((above + "/root/closed").constData(), 0), 0);
        for (const auto lookup : {Beneath::Lookup::Whole, Beneath::Lookup::Stepwise}) {
            const Beneath beneath(root, lookup);
            for (const char *path : {"dir/file", "near", "absolute", "linked/file", "dir//./file"}) {
                const Beneath::Opened file = beneath.openRegular(path);
                char content[6] = {};
                QVERIFY2(read(file.descriptor.number(), content, 6) == 6, path);
                QCOMPARE(QByteArray(content, 6), "inside");
            }
            for (const char *path : {"far", "far/file", "stolen", "magic", "..", "../secret/file"}) {
                QVERIFY2(regular(beneath, path) == State::LeadsOut, path);
            }
            QCOMPARE(namesIn(beneath.openDirectory("linked").descriptor).value(), QByteArrayList{"file"});
            QCOMPARE(namesIn(beneath.openDirectory("").descriptor).value().size(), 10);
            QVERIFY(!namesIn(beneath.openDirectory("pipe").descriptor));
            QCOMPARE(regular(beneath, "pipe"), State::WrongKind);
            QCOMPARE(regular(beneath, "dir/nothing"), State::Missing);
            QCOMPARE(regular(beneath, "dir/file/x"), State::Missing);
            QVERIFY(regular(beneath, "circle") != State::Open);
            QCOMPARE(Beneath(root + "/linked", lookup).rootState(), State::LeadsOut);
            QCOMPARE(Beneath(root + "/dir/file", lookup).rootState(), State::WrongKind);
            // The superuser may read everything.
            QVERIFY(getuid() != 0 || seteuid(65534) == 0);
            const State closed = beneath.openDirectory("closed").state;
            QVERIFY(getuid() != 0 || seteuid(0) == 0);
            QCOMPARE(closed, State::Unreadable);
        }
    }
};

QTEST_GUILESS_MAIN(tst_beneath)
#include "tst_beneath.moc"
