#include "tests/support/StruckTest.h"

#include <QElapsedTimer>

#include <csignal>

/// Operations that are cancelled, or whose service is asked to end, wherever they are: nothing live is lost,
/// nobody stays stopped, and what could be restored before still can.
class tst_cancel : public StruckTest
{
    Q_OBJECT

    static constexpr int longestMs = freedMemoryIsKept ? 3000 : 1000;

    std::unique_ptr<Jobs> jobs;
    QMap<QString, QList<int>> usual; ///< calls and, behind them, requests of an undisturbed operation

    static bool restores(const QString &operation) { return !operation.contains("ave"); }

    void begin(const QString &operation)
    {
        setBack(restores(operation));
        std::fill(control->counts.begin(), control->counts.end(), 0);
        store->requests.clear();
        jobs->ended.clear();
        if (operation.startsWith("start")) {
            device->callLater(operation);
        } else {
            jobs->call(operation, {operation == "Verify" ? QVariantMap{{"full", true}} : QVariantMap()});
        }
    }

    /// Have the service where it is to be cancelled: stopped at a call, or waiting for the answer to a
    /// request.
    bool reach(const QString &operation, int kind, double part)
    {
        if (!usual.contains(operation)) {
            begin(operation);
            if (jobs->endOf().code != "Success") {
                return false;
            }
            usual[operation] = QList<int>(control->counts.begin(), control->counts.end())
                               << int(store->requests.size());
        }
        const int at = 1 + int(usual[operation].value(kind) * part);
        int seen = 0;
        store->behaviour = [=, this](int, const QString &, const QString &) mutable {
            return onServer && ++seen == at ? StoreServer::Held : StoreServer::Proper;
        };
        control->kind = kind;
        control->error = FaultControl::stops;
        control->at = onServer ? 0 : at;
        begin(operation);
        return TestDevice::waitUntil([&] {
            return onServer ? store->isHolding()
                            : TestDevice::processState(device->service().processId()) == "T";
        });
    }

    /// Everything that could be restored before still can, but for an item that was on its way to a server.
    QString lost()
    {
        TestDevice::shell("rm -rf " + dataRoot() + " && cp -a " + place.filePath("damaged") + " " +
                          dataRoot());
        operate(true);
        const Files now = items(dataRoot());
        QStringList faults;
        for (auto item = now.cbegin(); item != now.cend(); ++item) {
            if (item.value() != live["old"].value(item.key()) &&
                item.value() != live["new"].value(item.key())) {
                faults << item.key();
            }
        }
        return faults.join(' ');
    }

    void prepareFor(bool server)
    {
        if (device && onServer == server) {
            return;
        }
        jobs.reset();
        usual.clear();
        QVERIFY(prepare(server));
        jobs = std::make_unique<Jobs>(*device);
    }

    static void addPoints(bool server, const char *operation, int kind, const QList<double> &parts)
    {
        for (const double part : parts) {
            QTest::addRow("%s, %s, %d, %.0f %%", server ? "server" : "directory", operation, kind, 100 * part)
                << server << operation << kind << part;
        }
    }

private Q_SLOTS:
    void init() {}
    void cleanup() {}
    void initTestCase() { QVERIFY(mapControl()); }
    void cleanupTestCase() { QCOMPARE(TestDevice::retire(device), QString()); }

    void points_data()
    {
        columns<bool, QString, int, double>("server", "operation", "kind", "part");
        using enum FaultControl::Class;
        for (const char *operation : {"Save", "Restore"}) {
            addPoints(false, operation, OpenForReading, {0.2, 0.8});
            addPoints(false, operation, OpenForWriting, {0.5});
            addPoints(false, operation, Read, {0.5});
            addPoints(false, operation, Write, {0.2, 0.6});
            addPoints(false, operation, Rename, {0.5});
        }
        for (const auto kind : {OpenForReading, Read, Write}) {
            addPoints(false, "Verify", kind, {0.5});
        }
        for (const char *operation : {"startSaveOnRepository", "startRestoreFromRepository"}) {
            addPoints(false, operation, Write, {0.4});
            addPoints(false, operation, Rename, {0.3});
        }
        for (const char *operation : {"startSaveOnRepository", "startRestoreFromRepository"}) {
            addPoints(true, operation, Requests, {0.3, 0.6});
        }
        addPoints(true, "Save", Requests, {0, 0.3, 0.45, 0.6, 0.75, 0.9});
        addPoints(true, "Restore", Requests, {0, 0.3, 0.5, 0.7, 0.9});
        addPoints(true, "Verify", Requests, {0, 0.3, 0.6, 0.9});
    }
    void points()
    {
        QFETCH(bool, server);
        QFETCH(QString, operation);
        QFETCH(int, kind);
        QFETCH(double, part);
        prepareFor(server);
        QVERIFY(jobs && reach(operation, kind, part));
        const QString request = onServer ? store->requests.last() : QString();
        QElapsedTimer timer;
        timer.start();
        jobs->cast("Cancel");
        TestDevice::waitUntil([] { return false; }, 50); // it is on its way
        kill(pid_t(device->service().processId()), SIGCONT);
        const Jobs::End end = jobs->endOf();
        QVERIFY2(timer.elapsed() < longestMs, qPrintable(QString::number(timer.elapsed())));
        control->at = 0;
        store->behaviour = {};
        store->release();
        QCOMPARE(end.code, "Cancelled");
        QVERIFY(device->allRun({"A", "B"}));
        QCOMPARE(faultsOf(restores(operation), dataRoot(), repository()).join(", "), QString());
        QVERIFY(TestDevice::shell("find " + dataRoot() + " -name '.saverestore*'").isEmpty());
        QCOMPARE(jobs->run("Verify", {{"full", true}}).code, "Success");
        if (!restores(operation)) {
            const QString left = lost();
            const bool underWay = request.startsWith("PUT ") &&
                                  !request.contains(QRegularExpression("\\.(cksum|attributes|version|sav)$"));
            QVERIFY2(left.isEmpty() || (underWay && !left.contains(' ')), qPrintable(request + ": " + left));
        }
        putInOrder(restores(operation));
    }

    void asked_data()
    {
        columns<bool, QString, int, double>("server", "operation", "kind", "part");
        addPoints(false, "Save", FaultControl::Write, {0.5});
        addPoints(false, "Restore", FaultControl::Rename, {0.5});
        addPoints(true, "Save", Requests, {0.6});
        addPoints(true, "startRestoreFromRepository", Requests, {0.5});
        addPoints(true, "Verify", Requests, {0.7});
    }
    /// The service is asked to end.
    void asked()
    {
        QFETCH(bool, server);
        QFETCH(QString, operation);
        QFETCH(int, kind);
        QFETCH(double, part);
        prepareFor(server);
        QVERIFY(jobs && reach(operation, kind, part));
        device->service().terminate();
        QElapsedTimer timer;
        timer.start();
        kill(pid_t(device->service().processId()), SIGCONT);
        const Jobs::End end = jobs->endOf();
        QCOMPARE(end.code, "Stopped");
        QVERIFY(device->serviceEnds());
        QVERIFY2(timer.elapsed() < longestMs, qPrintable(QString::number(timer.elapsed())));
        control->at = 0;
        store->behaviour = {};
        store->release();
        QVERIFY(serveAfresh());
        QVERIFY(device->allRun({"A", "B"}));
        QCOMPARE(faultsOf(restores(operation), dataRoot(), repository()).join(", "), QString());
        QCOMPARE(jobs->run("Verify", {{"full", true}}).code, "Success");
        putInOrder(restores(operation));
    }

    void large_data()
    {
        columns<QString, QString>("operation", "sign");
        const QString save = "Save";
        const QString restore = "Restore";
        row("copy", save, QString("Copying database 'big'"));
        row("dump", save, QString("Dump database 'big'"));
        row("digest", save, QString("Saving file 'blob'"));
        row("archive", save, QString("Saving directory (zipped) 'tree'"));
        row("into the repository", save, QString("file: L/tree.tar"));
        row("comparison", restore, QString("Saving file 'blob'"));
        row("load", restore, QString("Loading '"));
        row("backup", restore, QString("state T"));
        row("unpacking", restore, QString("entry tree"));
        row("file", restore, QString("File 'blob' copied into"));
        row("trial", QString("Verify"), QString("Loading '"));
    }
    /// 200 MB of each kind are on their way.
    void large()
    {
        QFETCH(QString, operation);
        QFETCH(QString, sign);
        QVERIFY(!saved.isEmpty() || prepareLarge());
        changeLarge();
        const QStringList before = largeState();
        device->markLog();
        jobs->ended.clear();
        const QVariantMap options = operation == "Verify" ? QVariantMap{{"full", true}} : QVariantMap();
        jobs->call(operation, {options});
        QVERIFY(TestDevice::waitUntil([&] { return isSeen(sign); }, 60000));
        TestDevice::waitUntil([] { return false; }, 50);
        QElapsedTimer timer;
        timer.start();
        jobs->cast("Cancel");
        const Jobs::End end = jobs->endOf();
        qInfo("%lld ms", timer.elapsed());
        QVERIFY2(timer.elapsed() < longestMs, qPrintable(QString::number(timer.elapsed())));
        QCOMPARE(end.code, "Cancelled");
        QVERIFY(device->allRun({"L"}));
        const QStringList now = largeState();
        for (qsizetype item = 0; item < now.size(); ++item) {
            QVERIFY(now[item] == before[item] || now[item] == saved[item]);
        }
        QVERIFY(TestDevice::shell("find " + dataRoot() + " -name '.saverestore*'").isEmpty());
        if (operation == "Verify") {
            QCOMPARE(jobs->run("Restore").code, "Success");
            QCOMPARE(largeState(), saved);
            changeLarge();
            QCOMPARE(jobs->run("Save").code, "Success");
            QCOMPARE(jobs->run("Verify", {{"full", true}}).code, "Success");
        }
    }

private:
    QStringList saved;

    bool prepareLarge()
    {
        jobs.reset();
        device.reset();
        startAfresh();
        device->addModule("L", "<databases><database name='big'/></databases><files><file>blob</file>"
                               "<file zip='true'>tree</file></files>");
        device->sql(
            "L", "big",
            "CREATE TABLE t(k INTEGER PRIMARY KEY, v); INSERT INTO t SELECT value, zeroblob(1000000) FROM "
            "generate_series(1, 200)");
        TestDevice::shell("cd " + device->dataPath("L", "") +
                          "; head -c 200000000 /dev/zero >blob; mkdir tree; cp blob tree/x");
        const bool ready = start(false) && save();
        saved = largeState();
        jobs = std::make_unique<Jobs>(*device);
        return ready;
    }
    /// The beginnings of all differ from what is saved.
    void changeLarge() const
    {
        device->sql("L", "big",
                    "REPLACE INTO t VALUES(1, 'changed'); UPDATE t SET v = zeroblob(1000001) WHERE k > 190");
        TestDevice::shell("cd " + device->dataPath("L", "") +
                          "; for f in blob tree/x; do printf changed | dd conv=notrunc of=$f 2>&-; done");
    }
    QStringList largeState() const
    {
        return {TestDevice::shell("md5sum < " + device->dataPath("L", "blob")),
                TestDevice::shell("md5sum < " + device->dataPath("L", "tree/x")),
                device->sql("L", "big",
                            "SELECT count(*), sum(length(v)), min(length(v)) FROM t; PRAGMA quick_check")};
    }
    bool isSeen(const QString &sign) const
    {
        return sign == "state T" ? device->moduleState("L") == "T"
               : sign == "entry tree"
                   ? !TestDevice::shell("ls " + device->dataPath("L", ".saverestore-incoming*/x")).isEmpty()
                   : device->hasLogged(sign);
    }

    static constexpr int Requests = 9; ///< behind the classes of calls

    /// The next undisturbed operations bring everything into order.
    void putInOrder(bool restored)
    {
        if (!restored) {
            TestDevice::shell("rm -rf " + dataRoot() + " && cp -a " + place.filePath("new") + " " +
                              dataRoot());
        }
        operate(restored);
        QVERIFY(popUps.isEmpty() && isDone(restored));
        operate(!restored);
        QVERIFY(popUps.isEmpty() && items(dataRoot()) == live["new"] && untrueLine(repository()).isEmpty());
    }
};

QTEST_GUILESS_MAIN(tst_cancel)
#include "tst_cancel.moc"
