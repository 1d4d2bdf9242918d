#include "restore/LiveData.h"
#include "tests/support/DiskModel.h"
#include "tests/support/OperationTest.h"

#include <QRandomGenerator>

#include <cerrno>
#include <fcntl.h>
#include <sys/mman.h>

/// Of the tests' own syncs nothing depends, and they take their time.
extern "C" int syncfs(int) noexcept
{
    return 0;
}

/// Saves and restores of which one call of the service or its children fails, at which the service is killed,
/// or in which the power is lost, and many in a row. Of the calls a few are struck, by chance: the variable
/// SEED repeats a choice. FAULTS=<class> has all of a class struck, one after the other; with a number behind
/// it, those from that one on.
class tst_faults : public OperationTest
{
    Q_OBJECT

    struct Kind
    {
        const char *name;
        int error;
    };
    static constexpr Kind kinds[] = {{"open for reading", EACCES},
                                     {"open for writing", ENOSPC},
                                     {"read", EIO},
                                     {"write", ENOSPC},
                                     {"sync", EIO},
                                     {"rename", EIO},
                                     {"remove", EACCES},
                                     {"mkdir", ENOSPC},
                                     {"connect", ECONNREFUSED}};

    QTemporaryDir place;
    FaultControl *control = nullptr;
    QMap<QString, Files> live;    ///< items of the modules' data, by what is told of them
    QMap<QString, Files> entries; ///< the repository with these saved
    int failures = 0;
    int kills = 0;
    QList<int> made; ///< calls of the last operation, by class

    QString dataRoot() const { return device->path("data/VYXApplication"); }

    /// Each item with what it holds: a directory that is saved as a whole is one, a database is its rows.
    static Files items(const QString &data)
    {
        static Files rows;
        Files items;
        const Files files = filesBelow(data + "/");
        for (auto file = files.cbegin(); file != files.cend(); ++file) {
            const QString &name = file.key();
            if (name.startsWith("A/z/")) {
                items["A/z"] += name.toUtf8() + "=" + file.value() + "\n";
            } else if (name.endsWith(".data")) {
                QByteArray &known = rows[QString::fromLatin1(file.value() + files[name + "-journal"])];
                known = known.isEmpty() ? TestDevice::sqlOnFile(data + "/" + name, "SELECT v FROM t") : known;
                items[name] = known;
            } else if (!name.contains(".data-") && !name.startsWith("VYXSaveRestore/")) {
                items[name] = file.value();
            }
        }
        return items;
    }

    /// Those of the device's files that are the modules' data or the repository's.
    static Files lasting(Files files)
    {
        files.removeIf([](const auto &file) {
            return !file.key().startsWith("data/VYXApplication/") && !file.key().startsWith("media/");
        });
        return files;
    }

    void changeData(const QByteArray &content) const
    {
        write("A", {"z/f", "z/g", "dir/changes"}, content);
        write("B", {"plain", "low"}, content);
        for (const char *database : {"d", "rows"}) {
            device->sql("A", database,
                        "CREATE TABLE IF NOT EXISTS t(k INTEGER PRIMARY KEY, v); REPLACE INTO t VALUES(1, '" +
                            content + "')");
        }
        if (content == "old") {
            write("A", {"dir/goes", "dir/stays"}, "old");
            QFile::copy(device->dataPath("A", "d.data"), device->dataPath("A", "broken.data"));
        } else if (content == "new") {
            QFile::remove(device->dataPath("A", "dir/goes"));
            write("A", {"dir/appears"}, "new");
        } else if (content == "damaged") {
            QFile::remove(device->dataPath("A", "dir/appears"));
            write("A", {"broken.data"}, "damaged");
        }
    }

    /// End the service and start it with its calls watched; true when it had ended well, or was killed.
    bool serveAfresh(bool killed = false)
    {
        QProcess &service = device->service();
        const bool well = killed ? service.waitForFinished() || service.exitStatus() == QProcess::CrashExit
                                 : device->stopService() == 0;
        qputenv("LD_PRELOAD", FAULTS_LIBRARY);
        const bool started = device->startService("FastService");
        qunsetenv("LD_PRELOAD");
        return started && well;
    }

    bool prepare(bool server)
    {
        device.reset();
        startAfresh();
        const QByteArray root = device->path({}).chopped(1).toUtf8();
        qputenv("VYX_DEVICE_ROOT", root);
        qstrncpy(control->root.data(), root.constData(), control->root.size());
        device->addModule("A",
                          "<databases><database name='d'/><database name='broken'/><database name='rows'>"
                          "<sql-command table-name='t'>SELECT * FROM t</sql-command></database></databases>"
                          "<files><file zip='true'>z</file><file>dir</file></files>");
        device->addModule("B", "<files><file>plain</file><file priority='low'>low</file></files>");
        bool ready = start(server);
        for (const QByteArray content : {"old", "new", "damaged"}) {
            changeData(content);
            live[content] = items(dataRoot());
            const QString kept = place.filePath(content);
            TestDevice::shell("rm -rf " + kept + " && cp -a " + dataRoot() + " " + kept);
            ready = ready && (content == "damaged" || (save() && popUps.isEmpty()));
            entries[content] = repository();
        }
        return ready && serveAfresh();
    }

    /// New data and the repository before them, or damaged data and what they are restored from.
    void setBack(bool restores)
    {
        const QString data = place.filePath(restores ? "damaged" : "new");
        TestDevice::shell("rm -rf " + dataRoot() + " && cp -a " + data + " " + dataRoot());
        const Files &held = entries[restores ? "new" : "old"];
        store->entries = onServer ? held : Files();
        putFiles(device->repositoryPath(), onServer ? Files() : held);
    }

    void operate(bool restores) { run(restores ? "startRestoreFromRepository" : "startSaveOnRepository"); }

    /// What is neither as it was nor as it was saved, and what the repository promises and does not hold.
    QStringList faultsOf(bool restores, const QString &data, const Files &held) const
    {
        QStringList faults;
        const Files before = live[restores ? "damaged" : "new"];
        const Files after = live["new"];
        const Files now = items(data);
        for (const QString &item : QStringList(now.keys() + after.keys())) {
            const QByteArray content = now.value(item, "none");
            if (content != before.value(item, "none") && content != after.value(item, "none")) {
                faults << item + " is " + content;
            }
        }
        if (restores ? held != entries["new"] : !untrueLine(held).isEmpty()) {
            faults << "the repository is not sound: " + untrueLine(held);
        }
        return faults;
    }

    bool isDone(bool restores) const
    {
        return restores ? items(dataRoot()) == live["new"]
                        : uncompressed(repository()) == uncompressed(entries["new"]);
    }

    /// What goes wrong when a call is struck.
    QStringList faultsAfter(bool restores, int kind, int at, int error)
    {
        setBack(restores);
        std::fill(control->counts.begin(), control->counts.end(), 0);
        control->kind = kind;
        control->error = error;
        control->at = at;
        device->markLog();
        operate(restores);
        control->at = 0;
        made = QList<int>(control->counts.begin(), control->counts.end());
        QStringList faults;
        const bool killed = error == 0 && at > 0 && made[kind] >= at;
        const bool told =
            !popUps.isEmpty() || device->hasLogged("error VYX") || device->hasLogged("warning VYX");
        if (!killed && !told && !isDone(restores)) {
            faults << "not all is done, and nobody is told";
        }
        if (!serveAfresh(killed)) {
            faults << "the service did not end well";
        }
        if (!device->allRun({"A", "B"})) {
            faults << "a module is stopped";
        }
        faults += faultsOf(restores, dataRoot(), repository());
        operate(restores);
        if (!popUps.isEmpty() || !isDone(restores)) {
            faults << "the next operation does not mend it";
        }
        operate(!restores);
        if (!popUps.isEmpty() || items(dataRoot()) != live["new"] || !untrueLine(repository()).isEmpty()) {
            faults << "the one after that does not either";
        }
        return faults;
    }

    /// False, and told, when something goes wrong.
    bool survives(bool restores, int kind, int at, int error)
    {
        const QStringList faults = faultsAfter(restores, kind, at, error);
        ++(error == 0 ? kills : failures);
        if (!faults.isEmpty()) {
            qWarning("%s of %s %d: %s",
                     error == 0  ? "kill"
                     : error < 0 ? "failures"
                                 : "failure",
                     kinds[kind].name, at, qPrintable(faults.join(", ")));
        }
        return faults.isEmpty();
    }

private Q_SLOTS:
    void init() {} // one device for a row and the next
    void cleanup() {}
    void initTestCase()
    {
        const QByteArray file = place.filePath("control").toUtf8();
        writeFile(file, QByteArray(sizeof(FaultControl), 0));
        const int opened = open(file.constData(), O_RDWR);
        void *mapped = mmap(nullptr, sizeof(FaultControl), PROT_READ | PROT_WRITE, MAP_SHARED, opened, 0);
        QVERIFY(mapped != MAP_FAILED);
        control = static_cast<FaultControl *>(mapped);
        qputenv("FAULT_CONTROL", file);
        qputenv("ASAN_OPTIONS", qgetenv("ASAN_OPTIONS") + ":verify_asan_link_order=0");
    }

    void powerCuts_data()
    {
        columns<bool>("restores");
        row("save", false);
        row("restore", true);
    }
    /// At each recorded change, with any part of what is not synced.
    void powerCuts()
    {
        QFETCH(bool, restores);
        QVERIFY(prepare(false));
        setBack(restores);
        DiskModel disk(device->path({}));
        const QByteArray journal = place.filePath("journal").toUtf8();
        writeFile(journal, {});
        qstrncpy(control->journal.data(), journal.constData(), control->journal.size());
        operate(restores);
        control->journal.front() = 0;
        QStringList faults;
        QSet<size_t> seen;
        bool over = false; // then what was restored stays
        for (QByteArray record = readFile(journal); !over; over ? void() : disk.take(record)) {
            over = record.isEmpty();
            for (const Files &state : disk.afterPowerCuts()) {
                const Files left = lasting(state);
                const size_t hash = qHashMulti(0, left.keys(), left.values());
                if (over || !seen.contains(hash)) {
                    seen << hash;
                    putFiles(place.filePath("cut/"), left);
                    LiveData::recoverAll(place.filePath("cut/data"));
                    faults += faultsOf(restores && !over, place.filePath("cut/data/VYXApplication"),
                                       filesBelow(place.filePath("cut/media/repository/")));
                }
            }
        }
        for (const QString &name : lasting(disk.namedTooEarly).keys()) {
            // The digests carry a check of their own.
            if (!name.contains("/.saverestore-incoming") && !name.endsWith("/VYXSaveRestore/digests")) {
                faults << name + " was given to what was not on the disk";
            }
        }
        QCOMPARE(faults.join('\n'), QString());
        qInfo("%d states", int(seen.size()));
        QVERIFY(seen.size() >= 100 && lasting(disk.present()) == lasting(filesBelow(device->path({}))));
    }

    /// One process holds no more in the end than at first.
    void soak()
    {
        const int rounds = std::max(qEnvironmentVariableIntValue("SOAK"), 5);
        QVERIFY(prepare(false));
        setBack(false);
        const QString process = QString("/proc/%1/").arg(device->service().processId());
        QList<int> pages;
        QList<QStringList> held;
        for (int round = 1; round <= rounds; ++round) {
            changeData(QByteArray::number(round));
            const Files wanted = items(dataRoot());
            QVERIFY(save());
            changeData("damaged");
            restore();
            QVERIFY(items(dataRoot()) == wanted && popUps.isEmpty());
            pages << readFile(process + "statm").split(' ').value(1).toInt();
            held << QDir(process + "fd").entryList(QDir::System | QDir::AllEntries) +
                        filesBelow(device->path({})).keys();
        }
        const int early = rounds / 5;
        qInfo("pages: %d, then %d", pages[early], pages.last());
        QVERIFY(freedMemoryIsKept || pages.last() - pages[early] < 256);
        QCOMPARE(held.last(), held[early]);
    }

    void calls_data()
    {
        columns<bool, bool>("restores", "server");
        row("save directory", false, false);
        row("restore directory", true, false);
        row("save server", false, true);
        row("restore server", true, true);
    }
    void calls()
    {
        QFETCH(bool, restores);
        QFETCH(bool, server);
        const QByteArray which = qgetenv("FAULTS");
        const int given = qEnvironmentVariableIntValue("SEED");
        const int seed = given != 0 ? given : 1;
        QRandomGenerator chance(seed);
        qInfo("SEED=%d", seed);
        QVERIFY((device && onServer == server) || prepare(server));
        QCOMPARE(faultsAfter(restores, 0, 0, 0).join("; "), QString());
        const QList<int> usual = made;
        bool good = true;
        for (int kind = 0; kind < usual.size(); ++kind) {
            const QByteArray name = kinds[kind].name;
            const int from = which == name ? 1 : which.startsWith(name) ? which.mid(name.size()).toInt() : 0;
            const std::array errors = {0, kinds[kind].error, -kinds[kind].error};
            for (const int error : errors) {
                for (int at = from; at > 0; at = made[kind] < at ? 0 : at + 1) {
                    good = survives(restores, kind, at, error) && good;
                }
            }
            if (which.isEmpty() && usual[kind] > 0) {
                const int at = chance.bounded(usual[kind]) + 1;
                good = survives(restores, kind, at, errors[chance.bounded(3)]) && good;
            }
        }
        qInfo("%d calls failed, %d kills", std::exchange(failures, 0), std::exchange(kills, 0));
        QVERIFY(good);
    }
};

QTEST_GUILESS_MAIN(tst_faults)
#include "tst_faults.moc"
