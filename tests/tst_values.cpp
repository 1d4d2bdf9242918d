#include "commands/Digest.h"
#include "commands/ShellText.h"
#include "repository/ItemNames.h"
#include "save/PauseState.h"
#include "save/SavedEntries.h"
#include "save/SaveSchedule.h"
#include "save/UploadPlan.h"

#include <QProcess>
#include <QTest>

namespace {

ChecksumLines lines(const char *text)
{
    return parseChecksumLines(text);
}

QString shellOutput(const QString &line)
{
    QProcess process;
    process.start("/bin/sh", {"-c", line});
    process.waitForFinished();
    return QString::fromUtf8(process.readAllStandardOutput());
}

} // namespace

class tst_values : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void shellWords_data()
    {
        QTest::addColumn<QString>("value");
        QTest::addColumn<bool>("ordinary");
        QTest::newRow("path") << "/data/VYX/m++a.b-c_d" << true;
        QTest::newRow("space") << "a b" << false;
        QTest::newRow("single quote") << "it's" << false;
        QTest::newRow("substitution") << "$(echo x)`id`$HOME" << false;
        QTest::newRow("backslash") << "a\\nb\\" << false;
        QTest::newRow("dash") << "-n" << false;
        QTest::newRow("line feed") << "a\nb; id" << false;
        QTest::newRow("tilde") << "~root" << false;
        QTest::newRow("unicode") << "für 日本" << false;
        QTest::newRow("empty") << "" << false;
    }
    void shellWords()
    {
        QFETCH(QString, value);
        QFETCH(bool, ordinary);
        QCOMPARE(ShellText::quoted(value) == value, ordinary);
        QCOMPARE(shellOutput("printf '[%s]' " + ShellText::quoted(value)), "[" + value + "]");
        QCOMPARE(shellOutput(ShellText::printCommand(value)), value + "\n");
        QCOMPARE(shellOutput(ShellText::printQuotedCommand(value)), value + "\n");
    }

    void digests()
    {
        const QByteArray hex = "d41d8cd98f00b204e9800998ecf8427e";
        QCOMPARE(digestFromOutput("MD5(/x)= " + hex + "\n"), QString(hex));
        QCOMPARE(digestFromOutput("MD5(/a= b)= " + hex), QString(hex));
        for (const char *output :
             {"unable to open", "MD5(/x)= d41d8c", "", "MD5(/x)= zzzz8cd98f00b204e9800998ecf8427e"}) {
            QCOMPARE(digestFromOutput(output), QString());
        }
    }

    void itemPaths()
    {
        QCOMPARE(ItemNames::normalizedItemPath("a//b///"), "a/b");
        QCOMPARE(ItemNames::normalizedItemPath("./a..b/..c"), "a..b/..c");
        for (const char *refused :
             {"/etc/passwd", "../x", "a/../../x", "a/..", "", ".", "//", "a\tb", "a\nb"}) {
            QCOMPARE(ItemNames::normalizedItemPath(refused), QString());
        }
    }

    void artefactsAndKeys()
    {
        QCOMPARE(ItemNames::databaseKey("m", "d"), "m/d.data");
        QCOMPARE(ItemNames::stagedDump("m", "d"), "m++d.dump.gz");
        for (const char *directory : {"logs", "conf/logs", "Ålbum (1)"}) {
            const QString key = ItemNames::archiveKey("m", directory);
            QCOMPARE(ItemNames::artefactOfKey(key), ItemNames::stagedArchive("m", directory) + ".gz");
            QCOMPARE(ItemNames::keyOfArtefact(ItemNames::artefactOfKey(key)), key);
        }
    }

    void plainFileEntries()
    {
        const LinesByModule modules = {{"a", lines("x\t1\tfile\thigh\nconf/s\t1\tfile\thigh\nonly/deep/"
                                                   "f\t1\tfile\thigh\nmodules-list.sav\t1\tfile\tlow\n")},
                                       {"b", lines("x\t2\tfile\thigh\nconf/s\t2\tfile\thigh\nb/"
                                                   "d\t3\tfile\thigh\nb/d.data\t3\tdatabase\thigh\n")},
                                       // what module b's file is renamed to, claimed by another
                                       {"c", lines("b/x\t3\tfile\thigh\nc++own\t3\tfile\thigh\n")},
                                       {"d", lines("b++d.dump.gz\t3\tfile\thigh\n")}};
        const SavedEntries entries(modules);
        const auto name = [&](const char *module, const char *key) {
            for (const ChecksumLine &line : modules.value(module)) {
                if (line.key() == key) {
                    return entries.entry(module, line).text();
                }
            }
            return QString();
        };
        QCOMPARE(name("a", "x"), "a++x");
        QCOMPARE(name("b", "x"), "b++x");
        QCOMPARE(name("a", "conf/s"), "a++conf++s");
        QCOMPARE(name("b", "conf/s"), "b++conf++s");
        QCOMPARE(name("a", "only/deep/f"), "only++deep++f");
        QCOMPARE(name("a", "modules-list.sav"), "a++modules-list.sav");
        QCOMPARE(name("b", "b/d"), "b++d");
        QCOMPARE(name("c", "b/x"), "c++b++x");
        QCOMPARE(name("c", "c++own"), "c++own");
        QCOMPARE(name("d", "b++d.dump.gz"), "d++b++d.dump.gz");
        QCOMPARE(entries.entry("a", modules["a"].at(2)).prefix, "only++deep");
        QCOMPARE(entries.names().size(), 11);
    }

    void checksumLines()
    {
        QCOMPARE(lines("a\t1\tfile\nb\t2\n").size(), 2);
        QCOMPARE(lines("a\t1\nb\nc\t3\n").size(), 1);
        QCOMPARE(lines("a\t1\n\nc\t3\n").size(), 1);
        QCOMPARE(lines("a\t\tfile\thigh\nb\t2").size(), 2);
    }

    void comparison()
    {
        const ChecksumLines local =
            lines("a\t1\tfile\tnormal\nb\t1\tfile\tlow\nmine\t1\tfile\thigh\nb\t2\tfile\tlow\n");
        const ChecksumLines saved =
            lines("a\t1\tfile\thigh\nb\t1\tfile\thigh\ntheirs\t1\tdirectory\t1\tlow\n");
        for (const bool forSave : {true, false}) {
            const ChecksumEntries entries = compareChecksumLines(local, saved, forSave);
            QCOMPARE(entries.size(), 4);
            QCOMPARE(entries["a"].status, Same);
            QCOMPARE(entries["a"].priority, "normal");
            QCOMPARE(entries["b"].status, Updated);
            QCOMPARE(entries["mine"].status, forSave ? Deleted : New);
            QCOMPARE(entries["theirs"].status, forSave ? Deleted : New);
            QCOMPARE(entries["theirs"].kind, "directory");
        }
    }

    void completion_data()
    {
        QTest::addColumn<QByteArray>("staged");
        QTest::addColumn<QByteArray>("previous");
        QTest::addColumn<QByteArray>("completed");
        QTest::newRow("unreadable tonight")
            << QByteArray("a\t\tfile\tfalse\thigh\n") << QByteArray("a\t7\tfile\tfalse\thigh\n")
            << QByteArray("a\t7\tfile\tfalse\thigh\n");
        QTest::newRow("never seen") << QByteArray("a\t\tfile\tfalse\thigh\nb\t1\tfile\tfalse\thigh\n")
                                    << QByteArray() << QByteArray("b\t1\tfile\tfalse\thigh\n");
        QTest::newRow("removed") << QByteArray() << QByteArray("a\t7\tfile\tfalse\thigh\n") << QByteArray();
        QTest::newRow("its pass did not run") << QByteArray() << QByteArray("a\t7\tfile\tfalse\tlow\n")
                                              << QByteArray("a\t7\tfile\tfalse\tlow\n");
        QTest::newRow("now of another priority")
            << QByteArray("a\t8\tfile\tfalse\thigh\n") << QByteArray("a\t7\tfile\tfalse\tlow\n")
            << QByteArray("a\t8\tfile\tfalse\thigh\n");
        QTest::newRow("directory gone")
            << QByteArray("d\t\tfile\tfalse\thigh\n")
            << QByteArray("d/x\t7\tfile\tfalse\thigh\nd2/x\t7\tfile\tfalse\thigh\n")
            << QByteArray("d/x\t7\tfile\tfalse\thigh\n");
        QTest::newRow("zipped directory gone")
            << QByteArray("d\t\tfile\ttrue\thigh\n") << QByteArray("m/d.tar\t7\tdirectory\t1\thigh\n")
            << QByteArray("m/d.tar\t7\tdirectory\t1\thigh\n");
    }
    void completion()
    {
        QFETCH(QByteArray, staged);
        QFETCH(QByteArray, previous);
        QFETCH(QByteArray, completed);
        const auto result =
            completeLines("m", parseChecksumLines(staged), parseChecksumLines(previous), {"high"});
        QCOMPARE(result.lines, parseChecksumLines(completed));
    }

    void removalsLeaveWhatOthersUse()
    {
        const SavedEntries before(
            {{"a", lines("x\t1\tfile\thigh\na/d.data\t1\tdatabase\thigh\na/z.tar\t1\tdirectory\t1\tlow\n")},
             {"b", lines("y\t1\tfile\thigh\n")}});
        const SavedEntries now({{"a", {}}, {"b", lines("x\t2\tfile\thigh\ny\t1\tfile\thigh\n")}});
        QStringList names;
        for (const EntryRemoval &removal : removals(now, before)) {
            names << removal.entry.text();
        }
        QCOMPARE(names, QStringList({"a++d.dump.gz", "a++z.tar.gz"}));
    }

    void hours_data()
    {
        QTest::addColumn<int>("hour");
        QTest::addColumn<bool>("frequency");
        QTest::addColumn<int>("now");
        QTest::addColumn<QList<int>>("hours");
        QTest::newRow("time") << 3 << false << 10 << QList<int>{3};
        QTest::newRow("every six") << 6 << true << 10 << QList<int>{11, 17, 23, 5};
        QTest::newRow("daily at 23") << 24 << true << 23 << QList<int>{24, 0};
        QTest::newRow("daily at 0") << 24 << true << 0 << QList<int>{1};
        QTest::newRow("huge period") << INT_MAX << true << 5 << QList<int>{6};
        QTest::newRow("no period") << 0 << true << 5 << QList<int>{};
        QTest::newRow("negative period") << -1 << true << 5 << QList<int>{};
    }
    void hours()
    {
        QFETCH(int, hour);
        QFETCH(bool, frequency);
        QFETCH(int, now);
        QTEST(scheduledHours(hour, frequency, now).value_or(QList<int>()), "hours");
    }

    void hoursOfEveryPeriod()
    {
        for (int period = 1; period <= 24; ++period) {
            for (int now = 0; now < 24; ++now) {
                QList<int> expected;
                for (int hour = now + 1; hour <= 24; ++hour) {
                    expected << ((hour - now - 1) % period == 0 ? QList<int>{hour} : QList<int>{});
                }
                for (int hour = now; hour >= 0; --hour) {
                    expected << ((now + 1 - hour) % period == 0 ? QList<int>{hour} : QList<int>{});
                }
                QCOMPARE(scheduledHours(period, true, now).value(), expected);
                QCOMPARE(scheduledHours(period, false, now).value(), QList<int>{period});
            }
        }
    }

    void processIds()
    {
        for (const char *pid : {"", "0", "1", "-5", "abc", "12 34", "99999999999"}) {
            QVERIFY2(!isProcessId(pid), pid);
        }
        QVERIFY(isProcessId("2"));
        QCOMPARE(stateOfStatLine("12 (a b) T 1"), "b)");
        QCOMPARE(stateOfStatLine("12 (ab)"), "");
        QVERIFY(isPausedState("t") && isPausedState("T") && !isPausedState("Z") && !isPausedState(""));
    }
};

QTEST_GUILESS_MAIN(tst_values)
#include "tst_values.moc"
