#include "tests/support/NginxServer.h"
#include "tests/support/OperationTest.h"
#include "tests/support/Promises.h"

#include <optional>

/// Checks of what a repository holds: each damage is found and named, a save that repairs sends exactly that
/// again, and a repository that is sound is never found fault with.
class tst_verify : public OperationTest
{
    Q_OBJECT

    std::optional<NginxServer> nginx;
    std::unique_ptr<Jobs> jobs;
    QTemporaryDir kept; ///< the sound repository

    static constexpr std::array kinds = {"directory", "server", "server that lists"};
    QString kind; ///< of the repository

    bool lists() const { return kind != "server"; }
    QString place() const { return kind == "directory" ? device->repositoryPath() : nginx->store(); }

    void addModules() const
    {
        const QString rows = "<sql-command table-name='t'>SELECT * FROM t</sql-command>";
        device->addModule(
            "A", "<databases><database name='whole'/><database name='other'/><database name='rows'>" + rows +
                     "</database><database name='few'>" + rows +
                     "</database></databases><files><file>f</file><file>p</file><file>q</file>"
                     "<file>dir</file><file zip='true'>z</file><file zip='true'>y</file>"
                     "<file priority='low'>low</file></files>");
        device->addModule("B", "<files><file>f</file><file>own</file></files>");
        changeData("old");
    }

    void changeData(const QByteArray &content) const
    {
        for (const QString item : {"f", "p", "q", "dir/ö x", "z/a", "z/b", "y/a", "low"}) {
            write("A", {item}, content + item.toUtf8());
        }
        write("B", {"f", "own"}, content + " of B");
        int pages = 1;
        for (const QString database : {"whole", "other", "rows", "few"}) {
            device->sql(
                "A", database,
                QString(
                    "CREATE TABLE IF NOT EXISTS t(k INTEGER PRIMARY KEY, v); REPLACE INTO t VALUES(%1, '%2')")
                    .arg(++pages)
                    .arg(QString::fromUtf8(content)));
        }
    }

    bool prepare(const QString &wanted)
    {
        jobs.reset();
        device.reset();
        startAfresh();
        kind = wanted;
        addModules();
        if (kind != "directory") {
            nginx.emplace("server", "http2", "", kind == "server that lists");
            NginxServer::installTool(device->path({}));
        }
        device->writeSettings("2", kind == "directory" ? QString() : nginx->url());
        const bool ready = device->start() && device->save();
        jobs = std::make_unique<Jobs>(*device);
        TestDevice::shell("rm -rf " + kept.path() + "/*; cp -a " + place() + ". " + kept.path());
        return ready;
    }

    void setBack() const
    {
        TestDevice::shell("rm -rf " + place() + "* " + place() + ".??*; cp -a " + kept.path() + "/. " +
                          place());
    }

    QByteArray inPlace(const QString &line) const
    {
        return TestDevice::shell("cd '" + place() + "' && " + line);
    }

    Jobs::End verify(bool full = true) { return jobs->run("Verify", {{"full", full}}); }

    /// How a check ends, and what it names, as one text.
    QString found(bool full = true)
    {
        const Jobs::End end = verify(full);
        return end.code + ": " + end.failed().join(' ');
    }

    static QString finding(const QString &names)
    {
        return (names.isEmpty() ? "Success: " : "Damaged: ") + names;
    }

private Q_SLOTS:
    void init() {} // one device for all damages of a kind of repository
    void cleanup() {}
    void cleanupTestCase() { QCOMPARE(TestDevice::retire(device), QString()); }

    void damages_data()
    {
        columns<QString, QString, QString, QString>("repository", "made", "names", "seen");
        // What is done in the repository, what a full check names, and what a quick one does of that.
        const QList<std::array<const char *, 3>> all = {
            {":", "", ""},
            {"rm p", "A/p", "A/p"},
            {"rm dir++*", "A/dir/ö x", "A/dir/ö x"},
            {"rm B++f", "B/f", "B/f"},
            {"rm A++z.tar.gz", "A/z", "A/z"},
            {"rm A++whole.dump.gz A++rows.dump.gz", "A/rows A/whole", "A/rows A/whole"},
            {"mv p x; mkdir p", "A/p", "A/p"},
            {"truncate -s -1 p low", "A/low A/p", ""},
            {"truncate -s -9 A++*", "A/f A/few A/other A/rows A/whole A/y A/z", ""},
            {": >p; : >A++z.tar.gz; : >A++whole.dump.gz; : >A++rows.dump.gz", "A/p A/rows A/whole A/z", ""},
            {"for e in p A++z.tar.gz A++whole.dump.gz A++few.dump.gz; do printf x >>$e; done",
             "A/few A/p A/whole A/z", ""},
            {"printf x | dd conv=notrunc of=p 2>&-", "A/p", ""},
            {"printf x | gzip >A++z.tar.gz", "A/z", ""},
            {"tar -czf A++z.tar.gz q", "A/z", ""},
            {"printf 'x;\\n' | gzip >A++whole.dump.gz; cp A++whole.dump.gz A++rows.dump.gz", "A/rows A/whole",
             ""},
            // A label, and behind it nothing, or what cannot be loaded.
            {"for e in whole rows; do head -c 53 A++$e.dump.gz >x; mv x A++$e.dump.gz; done",
             "A/rows A/whole", ""},
            {"head -c 53 A++whole.dump.gz >x; printf 'PRAGMA foreign_keys=OFF;\\nBEGIN "
             "TRANSACTION;\\nno;\\nCOMMIT;\\n' "
             "| gzip >>x; mv x A++whole.dump.gz",
             "A/whole", ""},
            {"mv p x; mv q p; mv x q", "A/p A/q", ""},
            {"mv A++f x; mv B++f A++f; mv x B++f", "A/f B/f", ""},
            {"mv A++z.tar.gz x; mv A++y.tar.gz A++z.tar.gz; mv x A++y.tar.gz", "A/y A/z", ""},
            {"mv A++whole.dump.gz x; mv A++other.dump.gz A++whole.dump.gz; mv x A++other.dump.gz",
             "A/other A/whole", ""},
            {"mv A++rows.dump.gz x; mv A++few.dump.gz A++rows.dump.gz; mv x A++few.dump.gz", "A/few A/rows",
             ""},
            // As services wrote them that did not label them.
            {"for e in *.dump.gz; do zcat $e | gzip -n >x; mv x $e; done", "", ""},
            {"for e in A++whole A++few; do zcat $e.dump.gz | head -n -1 | gzip -n >x; mv x $e.dump.gz; done",
             "A/few A/whole", ""},
            {"cp p stranger; cp A++z.tar.gz C++z.tar.gz", "", ""},
            {"rm A.version", "A/A.version", "A/A.version"},
            {"head -c 3000 /dev/urandom >A.version", "A/A.version", "A/A.version"},
            {": >B.version", "B/B.version", "B/B.version"},
            {"rm A.cksum", "A/A.cksum", "A/A.cksum"},
            {"printf '../A\n' >>modules-list.sav", "/modules-list.sav", "/modules-list.sav"},
            {"printf '../x\\t0\\tfile\\t1\\thigh\\n' >>B.cksum", "B/../x", "B/../x"},
        };
        for (const char *const repository : kinds) {
            for (const auto &[made, names, seen] : all) {
                QTest::addRow("%s: %s", repository, made) << repository << made << names << seen;
            }
        }
    }
    void damages()
    {
        QFETCH(QString, repository);
        QFETCH(QString, made);
        QFETCH(QString, names);
        QFETCH(QString, seen);
        QVERIFY((device && kind == repository) || prepare(repository));
        setBack();
        inPlace("LC_ALL=C; rm -f x; " + made + "; rm -rf x");
        QCOMPARE(found(false), finding(seen));
        const Jobs::End full = verify();
        QCOMPARE(full.code + ": " + full.failed().join(' '), finding(names));
        const bool strangers = lists() && made.contains("stranger");
        QCOMPARE(full.summary["leftOverKnown"].toBool(), lists() && !made.contains("rm A.cksum"));
        QCOMPARE(full.summary["leftOver"].toStringList().join(' '), strangers ? "C++z.tar.gz stranger" : "");

        inPlace("[ ! -d p ] || rmdir p");
        const Jobs::End repair = jobs->run("Save", {{"repair", true}});
        QCOMPARE(repair.code, "Success");
        const bool controlFile = names.contains(".version") || names.contains(".cksum") ||
                                 names.contains("..") || names.startsWith("/");
        if (!controlFile) {
            QStringList sent = names.isEmpty() ? QStringList() : names.split(' ');
            QCOMPARE(repair.changes().join(' '),
                     sent.replaceInStrings("A/dir/ö", "A/dir/ö")
                         .replaceInStrings(QRegularExpression("^(?=[AB]/)"), "sent ")
                         .join(' '));
        }
        QCOMPARE(found(), finding({}));
        QCOMPARE(untrueLine(filesBelow(place())), QString());
        QCOMPARE(jobs->run("Save", {{"repair", true}}).summary["itemsDone"].toUInt(), 0U);
    }

    void controlFiles_data()
    {
        columns<QString, QString>("made", "end");
        row("list missing", QString("rm modules-list.sav"), QString("NothingSaved: "));
        row("list without an end", QString("truncate -s 70M modules-list.sav"),
            QString("Damaged: /modules-list.sav"));
        row("checksums noise", QString("head -c 300000 /dev/zero >B.cksum"), QString("Damaged: /B.cksum"));
        row("attributes noise", QString("truncate -s 70M A.attributes"), QString("Damaged: /A.attributes"));
    }
    /// In which the repository says what it holds: without them the rest is not known, and none of it is told
    /// to be damaged or left over.
    void controlFiles()
    {
        QFETCH(QString, made);
        QFETCH(QString, end);
        QVERIFY((device && kind == "directory") || prepare("directory"));
        setBack();
        inPlace(made);
        for (const bool full : {false, true}) {
            QCOMPARE(found(full), end);
        }
        QVERIFY(!verify().summary["leftOverKnown"].toBool());
    }

    /// What the device no longer has cannot be sent again: nobody promises it any more.
    void damagedAndGone()
    {
        QVERIFY(prepare("directory"));
        inPlace("rm p A++whole.dump.gz; : >A++z.tar.gz");
        QCOMPARE(found(), finding("A/p A/whole A/z"));
        TestDevice::shell("cd '" + device->dataPath("A", "") + "' && rm -r p whole.data z");
        QCOMPARE(jobs->run("Save", {{"repair", true}}).code, "Success");
        QCOMPARE(found(), finding({}));
        QVERIFY(digest("A", "p").isEmpty() && digest("A", "A/whole.data").isEmpty() &&
                digest("A", "A/z.tar").isEmpty());
        QVERIFY(!digest("A", "q").isEmpty());
    }

    /// What was found is known to the next process; a quick check adds to it, and does not forget the rest.
    void remembered()
    {
        QVERIFY(prepare("directory"));
        inPlace("printf x >q");
        QCOMPARE(found(), finding("A/q"));
        inPlace("rm p");
        QCOMPARE(found(false), finding("A/p"));
        QCOMPARE(device->stopService(), 0);
        QVERIFY(device->startService("FastService"));
        QCOMPARE(jobs->run("Save", {{"repair", true}, {"dry_run", true}}).changes(),
                 QStringList({"sent A/p", "sent A/q"}));
        QCOMPARE(jobs->run("Save", {{"repair", true}, {"modules", QStringList{"B"}}}).changes(),
                 QStringList());
        QCOMPARE(jobs->run("Save", {{"repair", true}, {"priorities", QStringList{"low"}}}).changes(),
                 QStringList());
        QCOMPARE(jobs->run("Save", {{"repair", true}}).changes(), QStringList({"sent A/p", "sent A/q"}));
        QCOMPARE(found(), finding({}));
    }

    void soundOnes()
    {
        QVERIFY(prepare("directory"));
        const auto sound = [&](const QString &leftOver = {}) {
            const Jobs::End end = verify();
            return end.code == "Success" && end.failed().isEmpty() &&
                   untrueLine(filesBelow(place())).isEmpty() &&
                   end.summary["leftOver"].toStringList().join(' ') == leftOver;
        };
        QVERIFY(sound());
        changeData("new");
        QCOMPARE(jobs->run("Save", {{"priorities", QStringList{"high"}}}).code, "Success");
        QVERIFY(sound());
        QCOMPARE(jobs->run("Save", {{"modules", QStringList{"B"}}}).code, "Success");
        QVERIFY(sound());
        // B gives a colliding name up, and takes it again.
        device->describe("B", "<files><file>own</file></files>");
        QVERIFY(device->save() && sound());
        QVERIFY(QFile::exists(place() + "f"));
        write("B", {"f", "q"}, "new");
        device->describe("B", "<files><file>f</file><file>q</file></files>");
        QVERIFY(device->save() && sound());
        QVERIFY(QFile::exists(place() + "B++q") && !QFile::exists(place() + "own"));
        // What a module has saved that does not run stays, and what one has saved that is gone is nobody's.
        QFile::remove(device->path("etc/VYXApplication/module/B/restorable.xml"));
        QVERIFY(sound());
        QVERIFY(device->save() && sound("B++f B++q B.attributes B.cksum B.version"));
    }
};

QTEST_GUILESS_MAIN(tst_verify)
#include "tst_verify.moc"
