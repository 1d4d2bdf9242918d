#include "restore/LiveData.h"
#include "tests/support/DiskModel.h"
#include "tests/support/StruckTest.h"

#include <QRandomGenerator>

#include <cerrno>

/// Of the tests' own syncs nothing depends, and they take their time.
extern "C" int syncfs(int) noexcept
{
    return 0;
}

/// Saves and restores of which one call of the service or its children fails, at which the service is killed,
/// or in which the power is lost, and many in a row. Of the calls a few are struck, by chance: the variable
/// SEED repeats a choice. FAULTS=<class> has all of a class struck, one after the other; with a number behind
/// it, those from that one on.
class tst_faults : public StruckTest
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

    int failures = 0;
    int kills = 0;
    QList<int> made; ///< calls of the last operation, by class

    /// Those of the device's files that are the modules' data or the repository's.
    static Files lasting(Files files)
    {
        files.removeIf([](const auto &file) {
            return !file.key().startsWith("data/VYXApplication/") && !file.key().startsWith("media/");
        });
        return files;
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
    void initTestCase() { QVERIFY(mapControl()); }

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
                    qputenv("VYX_DEVICE_ROOT", place.filePath("cut").toUtf8());
                    LiveData::recoverNoted();
                    faults += faultsOf(restores && !over, place.filePath("cut/data/VYXApplication"),
                                       filesBelow(place.filePath("cut/media/repository/")));
                }
            }
        }
        for (const QString &name : lasting(disk.namedTooEarly).keys()) {
            // The digests carry a check of their own, and what is no JSON to its end is not read.
            if (!name.contains("/.saverestore-incoming") && !name.endsWith("/VYXSaveRestore/digests") &&
                !name.endsWith("/VYXSaveRestore/last-operations")) {
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
