#include "tests/support/NginxServer.h"
#include "tests/support/OperationTest.h"
#include "tests/support/Promises.h"

#include <QElapsedTimer>

#include <optional>
#include <sys/mount.h>
#include <utility>

/// Checks of what a repository holds: each damage is found and named, a save that repairs sends exactly that
/// again, and a repository that is sound is never found fault with.
class tst_verify : public OperationTest
{
    Q_OBJECT

    std::optional<NginxServer> nginx;
    std::unique_ptr<Jobs> jobs;
    QTemporaryDir kept; ///< the sound repository

    bool small = false; ///< a small file system holds what is tried

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

    void leave()
    {
        jobs.reset();
        if (std::exchange(small, false)) {
            device->stopService();
            TestDevice::shell("rm -rf " + device->repositoryPath() + "*"); // also what has odd names
            umount2(device->path("data/VYXApplication/VYXSaveRestore/trial").toUtf8().constData(),
                    MNT_DETACH);
        }
        device.reset();
        startAfresh();
    }

    bool prepare(const QString &wanted)
    {
        leave();
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
            {"sed -i '3s/.*/x/' A.cksum", "A/A.cksum", "A/A.cksum"},
            {"printf 'x\\n' >>A.attributes", "A/A.attributes", "A/A.attributes"},
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
        QCOMPARE(full.summary["leftOverKnown"].toBool(), lists() && !made.contains("A.cksum"));
        QCOMPARE(full.summary["leftOver"].toStringList().join(' '), strangers ? "C++z.tar.gz stranger" : "");

        inPlace("[ ! -d p ] || rmdir p");
        const Jobs::End repair = jobs->run("Save", {{"repair", true}});
        QCOMPARE(repair.code, "Success");
        const bool controlFile = names.contains(".version") || names.contains(".cksum") ||
                                 names.contains(".attributes") || names.contains("..") ||
                                 names.startsWith("/");
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
        row("attributes without sense", QString("truncate -s 5M A.attributes"),
            QString("Damaged: A/A.attributes"));
        row("attributes without an end", QString("truncate -s 70M A.attributes"),
            QString("Damaged: /A.attributes"));
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
        QVERIFY(!verify().summary["leftOverKnown"].toBool() || made.contains("5M"));
        if (!made.contains("70M")) {
            QCOMPARE(jobs->run("Save", {{"repair", true}}).code, "Success");
            QCOMPARE(found(), finding({}));
            QCOMPARE(untrueLine(filesBelow(place())), QString());
        }
    }

    void hostile_data()
    {
        columns<QString, QString>("made", "end");
        const QString label = "head -c 53 A++whole.dump.gz >x; ";
        const QString dump = "; mv x A++whole.dump.gz";
        row("archive of 300 MB of nothing", QString("head -c 300000000 /dev/zero | gzip >A++z.tar.gz"),
            finding("A/z"));
        row("archive of 8 TB", QString("truncate -s 8T x; tar -S -czf A++z.tar.gz x"), finding("A/z"));
        row("300 MB of one line", label + "head -c 300000000 /dev/zero | gzip >>x" + dump,
            finding("A/whole"));
        row("300 MB of ends", label + "yes 'COMMIT;' | head -c 300000000 | gzip >>x" + dump,
            finding("A/whole"));
        row("rows without end",
            label +
                "printf 'PRAGMA foreign_keys=OFF;\\nBEGIN TRANSACTION;\\nWITH RECURSIVE n(i) AS (SELECT 1 "
                "UNION ALL SELECT "
                "i+1 FROM n) SELECT i FROM n LIMIT 3000000;\\n' | gzip >>x" +
                dump,
            finding("A/whole"));
        row("empty members", "for i in $(seq 2000); do head -c 53 A++whole.dump.gz; done >x" + dump,
            finding("A/whole"));
        // What is tried has a quarter of the room that there is.
        row("more than there is room for",
            label +
                "printf 'PRAGMA foreign_keys=OFF;\\nBEGIN TRANSACTION;\\nCREATE TABLE t(v);\\nWITH RECURSIVE "
                "n(i) AS (SELECT "
                "1 UNION ALL SELECT i+1 FROM n LIMIT 100) INSERT INTO t SELECT randomblob(1000000) FROM "
                "n;\\nCOMMIT;\\n' "
                "| gzip >>x" +
                dump,
            finding({}));
        // One that is no text is not told.
        row("odd names",
            QString("for n in $(printf 'a\\001b x\\377y z\\177') $(yes n | head -n 250 | tr -d '\\n'); do : "
                    ">$n; done"),
            finding({}));
    }
    /// Whatever it holds, a check comes to its end.
    void hostile()
    {
        QFETCH(QString, made);
        QFETCH(QString, end);
        if (!device || kind != "small directory") {
            QVERIFY(prepare("directory"));
            kind = "small directory";
            const QString trials = device->path("data/VYXApplication/VYXSaveRestore/trial");
            QDir().mkpath(trials);
            small = mount("none", trials.toUtf8().constData(), "tmpfs", 0, "size=60m") == 0;
        }
        if (!small && made.contains("randomblob")) {
            QSKIP("no small file system can be mounted");
        }
        TestDevice::shell("rm -rf " + device->repositoryPath() + "*; cp -a " + kept.path() + "/. " +
                          device->repositoryPath());
        TestDevice::shell("cd " + device->repositoryPath() + "; " + made + "; rm -f x");
        QElapsedTimer timer;
        timer.start();
        const Jobs::End found = verify();
        QVERIFY2(timer.elapsed() < 30000, qPrintable(QString::number(timer.elapsed())));
        QCOMPARE(found.code + ": " + found.failed().join(' '), end);
        QCOMPARE(found.summary["itemsSkipped"].toUInt(), made.contains("randomblob") ? 1U : 0U);
        QCOMPARE(found.summary["leftOver"].toStringList().size(), made.contains("n | head") ? 3 : 0);
        const QByteArray status = readFile(QString("/proc/%1/status").arg(device->service().processId()));
        const qint64 peak = QRegularExpression("VmHWM:\\s*(\\d+)").match(status).captured(1).toLongLong();
        QVERIFY2(freedMemoryIsKept || peak < 64000, qPrintable(QString::number(peak)));
    }

    /// Too much to be told in one answer is an error, and no end of the connection.
    void manyItems()
    {
        QVERIFY(prepare("directory"));
        inPlace("awk 'BEGIN { for (i = 0; i < 70000; ++i) printf \"%070d\\t0\\tfile\\t1\\tlow\\n\", i }' "
                ">>A.cksum");
        for (const char *const look : {"List", "Preview"}) {
            const QDBusMessage reply = jobs->call(look);
            QCOMPARE(reply.errorName(), "com.corvane.Pelorin.Error.Failed");
            QVERIFY(reply.errorMessage().contains("too large"));
            QVERIFY(device->call("printSettings").type() == QDBusMessage::ReplyMessage);
        }
    }

    void listings_data()
    {
        columns<QByteArray, QString>("body", "names");
        const QByteArray one =
            "<D:response><D:href>/save/a%20b%25</D:href><D:propstat><D:prop><D:resourcetype/>"
            "<D:getcontentlength>3</D:getcontentlength></D:prop></D:propstat></D:response>";
        row("usual",
            one + "<D:response><D:href>/save/</D:href><D:propstat><D:prop><D:resourcetype><D:collection/>"
                  "</D:resourcetype></D:prop></D:propstat></D:response>",
            QString("a b%"));
        row("addresses",
            QByteArray("<D:response><D:href>http://h:1/save/p?q=/r</D:href></D:response>"
                       "<D:response><D:href>&lt;&#38;</D:href><D:href>x</D:href></D:response>"),
            QString("<& p"));
        row("control characters", QByteArray("<D:response><D:href>%01%0a%ff%00</D:href></D:response>"),
            QString("\1\n\uFFFD") + QChar(0));
        row("others' elements", QByteArray("<x xmlns='y'><response/><href>z</href></x>") + one,
            QString("a b%"));
        row("cut off", one + "<D:response>", QString("-"));
        row("another document", QByteArray("</D:multistatus><D:multistatus>"), QString());
        row("no answer", QByteArray("<<"), QString("-"));
        row("a document type", QByteArray("<!DOCTYPE x>"), QString("-"));
        row("deep", QByteArray("<a>").repeated(20000000), QString("-"));
        row("long", "<D:response><D:href>" + QByteArray(60000000, 'x'), QString("-"));
        row("long attribute", "<a b='" + QByteArray(60000000, 'x'), QString("-"));
        QByteArray many;
        for (int number = 0; number < 1000000; ++number) {
            many += "<D:response><D:href>/save/" + QByteArray::number(number) + "</D:href></D:response>";
        }
        row("a million", many, QString("-"));
    }
    /// A server tells its entries in many ways, and may tell anything.
    void listings()
    {
        QFETCH(QByteArray, body);
        QFETCH(QString, names);
        if (!device || !device->service().property("listed").toBool()) {
            leave();
            device->addModule("E", "<files><file>e</file></files>");
            write("E", {"e"}, "e");
            QVERIFY(OperationTest::start() && save());
            jobs = std::make_unique<Jobs>(*device);
            device->service().setProperty("listed", true);
        }
        store->listing = "<D:multistatus xmlns:D='DAV:'>" + body + "</D:multistatus>";
        for (const QString &entry : store->entries.keys()) {
            store->listing.insert(store->listing.indexOf('>') + 1,
                                  "<D:response><D:href>/save/" + entry.toUtf8() + "</D:href></D:response>");
        }
        QElapsedTimer timer;
        timer.start();
        const Jobs::End end = verify();
        QVERIFY2(timer.elapsed() < 20000, qPrintable(QString::number(timer.elapsed())));
        QCOMPARE(end.code, "Success");
        QCOMPARE(end.summary["leftOver"].toStringList().join(' '),
                 names == "-" ? QString() : names.section(QChar(0), 0, 0));
        QCOMPARE(end.summary["leftOverKnown"].toBool(), names != "-");
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

    /// With VERIFY_MB of data, or of the repository in the directory VERIFY_REPOSITORY.
    void memory()
    {
        const int size = std::max(qEnvironmentVariableIntValue("VERIFY_MB"), 60);
        const QString given = qEnvironmentVariable("VERIFY_REPOSITORY");
        leave();
        kind = "directory";
        addModules();
        for (int part = 0; part < size / 20 && given.isEmpty(); ++part) {
            const QString name = QString::number(part);
            device->addModule("M" + name, "<databases><database name='d'/></databases><files><file>f</file>"
                                          "<file zip='true'>z</file></files>");
            TestDevice::shell("mkdir -p '" + device->dataPath("M" + name, "z") + "' && cd '" +
                              device->dataPath("M" + name, "") +
                              "' && head -c 8000000 /dev/urandom >f && head -c 8000000 /dev/urandom >z/f");
            device->sql(
                "M" + name, "d",
                "CREATE TABLE t(v); INSERT INTO t SELECT randomblob(1000) FROM generate_series(1, 4000)");
        }
        QVERIFY(device->start("VYXSaveRestore") && (!given.isEmpty() || device->save()));
        if (!given.isEmpty()) {
            TestDevice::shell("rm -rf " + place() + "*; cp -a '" + given + "'/. " + place());
        }
        QCOMPARE(device->stopService(), 0);
        QVERIFY(device->startService());
        jobs = std::make_unique<Jobs>(*device);
        jobs->call("Verify", {QVariantMap{{"full", true}}});
        QMap<QString, int> most; // kB
        QVERIFY(TestDevice::waitUntil(
            [&] {
                const QString path = QString("/proc/%1/status").arg(device->service().processId());
                const QString status = QString::fromUtf8(readFile(path));
                for (const QString name : {"VmHWM", "RssAnon", "RssFile"}) {
                    const QRegularExpression line(name + ":\\s*(\\d+)");
                    most[name] = std::max(most[name], line.match(status).captured(1).toInt());
                }
                return !jobs->ended.isEmpty();
            },
            600000));
        const Jobs::End end = jobs->endOf();
        qInfo("%s, %u items: VmHWM %d kB; at the most RssAnon %d kB, RssFile %d kB", qPrintable(end.code),
              end.summary["itemsDone"].toUInt(), most["VmHWM"], most["RssAnon"], most["RssFile"]);
        QVERIFY(given.isEmpty() ? end.code == "Success" : !end.code.isEmpty());
        QVERIFY(freedMemoryIsKept || most["RssAnon"] < 16 * 1024);
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
