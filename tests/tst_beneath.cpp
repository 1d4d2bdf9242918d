#include "platform/Beneath.h"
#include "tests/support/TestDevice.h"

#include <QTest>

#include <unistd.h>

/// What opens below a directory and what does not, by both ways to look up.
class tst_beneath : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void opening()
    {
        using State = Beneath::State;
        const QTemporaryDir place;
        const QString root = place.path() + "/root";
        TestDevice::shell(
            "cd " + place.path() +
            " && mkdir -p root/dir root/closed secret && cd root && "
            "printf inside | tee dir/file >../secret/file && ln -s dir/file near && ln -s dir linked && "
            "ln -s $PWD/dir/file absolute && ln -s ../secret far && ln -s $PWD/../secret/file stolen && "
            "ln -s /proc/self/root/etc/passwd magic && ln -s circle circle && mkfifo pipe && chmod 0 closed");
        for (const auto lookup : {Beneath::Lookup::Whole, Beneath::Lookup::Stepwise}) {
            const Beneath beneath(root, lookup);
            for (const char *path : {"dir/file", "near", "absolute", "linked/file", "dir//./file"}) {
                char content[6] = {};
                QVERIFY2(read(beneath.openRegular(path).descriptor.number(), content, 6) == 6, path);
            }
            for (const char *path : {"far", "far/file", "stolen", "magic", "..", "../secret/file"}) {
                QVERIFY2(beneath.openRegular(path).state == State::LeadsOut, path);
            }
            QCOMPARE(namesIn(beneath.openDirectory("linked").descriptor).value(), QByteArrayList{"file"});
            QCOMPARE(namesIn(beneath.openDirectory("").descriptor).value().size(), 10);
            QCOMPARE(beneath.openDirectory("pipe").state, State::WrongKind);
            QCOMPARE(beneath.openRegular("pipe").state, State::WrongKind);
            QCOMPARE(beneath.openRegular("dir/file/x").state, State::Missing);
            QVERIFY(!beneath.openRegular("circle").descriptor.isOpen());
            QCOMPARE(Beneath(root + "/linked", lookup).rootState(), State::LeadsOut);
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
