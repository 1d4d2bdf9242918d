#include "restore/LiveData.h"
#include "tests/support/DiskModel.h"
#include "tests/support/OperationTest.h"
#include "tests/support/Promises.h"

#include <QRandomGenerator>

#include <cerrno>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

/// Saves and restores of which one call of the service or its children fails, at which the service is killed,
/// or in which the power is lost.
class tst_faults : public OperationTest
{
    Q_OBJECT

    struct Kind
    {
        const char *name;
        int error;
    };
    static constexpr std::array<Kind, FaultControl::classes> kinds = {{{"open for reading", EACCES},
                                                                       {"open for writing", ENOSPC},
                                                                       {"read", EIO},
                                                                       {"write", ENOSPC},
                                                                       {"sync", EIO},
                                                                       {"rename", EIO},
                                                                       {"remove", EACCES},
                                                                       {"make directory", ENOSPC},
                                                                       {"connect", ECONNREFUSED}}};

    const bool whole = qEnvironmentVariableIsSet("FAULTS");
    QRandomGenerator random;
    QMap<QPair<bool, bool>, QList<int>> usual; ///< calls of each class, by server and operation
    QTemporaryDir place;
    FaultControl *control = nullptr;
    QMap<QString, Files> live;    ///< the modules' data, by what is told of them
    QMap<QString, Files> entries; ///< the repository with these saved

    QString dataRoot() const { return device->path("data/VYXApplication"); }

    /// Each item with what it holds: a directory that is saved as a whole is one.
    static Files items(const QString &data)
    {
        Files items;
        const Files files = filesBelow(data + "/");
        for (auto file = files.cbegin(); file != files.cend(); ++file) {
            if (file.key().startsWith("A/z/")) {
                items["A/z"] += file.key().toUtf8() + "=" + file.value() + "\n";
            } else if (file.key().endsWith(".data")) {
                items[file.key()] = TestDevice::sqlOnFile(data + "/" + file.key(), "SELECT v FROM t");
            } else if (QFile::exists(data + "/" + file.key())) { // no side file any more
                items[file.key()] = file.value();
            }
        }
        return items;
    }

    void changeData(const QByteArray &content) const
    {
        write("A", {"z/f", "z/g", "dir/changes"}, content);
        write("B", {"plain", "low"}, content);
        device->sql("A", "d",
                    "CREATE TABLE IF NOT EXISTS t(v); DELETE FROM t; INSERT INTO t VALUES('" + content +
                        "')");
        if (content == "old") {
            write("A", {"dir/goes", "dir/stays"}, "old");
            device->sql("A", "e", "CREATE TABLE t(v); INSERT INTO t VALUES('old')");
        } else if (content == "new") {
            QFile::remove(device->dataPath("A", "dir/goes"));
            write("A", {"dir/appears"}, "new");
        } else if (content == "damaged") {
            QFile::remove(device->dataPath("A", "dir/appears"));
            write("A", {"e.data"}, "damaged");
        }
    }

    /// End the service and start it with its calls watched; true when it had ended well, or was killed as
    /// asked.
    bool serveAfresh(bool killed = false)
    {
        if (killed) {
            device->service().waitForFinished();
        }
        const bool well =
            killed ? device->service().exitStatus() == QProcess::CrashExit : device->stopService() == 0;
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
        device->addModule("A", "<databases><database name='d'/><database name='e'/></databases>"
                               "<files><file zip='true'>z</file><file>dir</file></files>");
        device->addModule("B", "<files><file>plain</file><file priority='low'>low</file></files>");
        bool saved = start(server);
        for (const char *content : {"old", "new", "damaged"}) {
            changeData(content);
            live[content] = items(dataRoot());
            const QString kept = place.filePath(content);
            TestDevice::shell("rm -rf " + kept + " && cp -a " + dataRoot() + " " + kept);
            saved = saved && (content == QByteArray("damaged") || save());
            entries[content] = repository();
        }
        qstrncpy(control->root.data(), root.constData(), control->root.size());
        return saved && popUps.isEmpty() && serveAfresh();
    }

    /// How many calls of a class an undisturbed operation makes. The device is prepared.
    int usualCount(bool server, bool restores, int kind)
    {
        if (!device || onServer != server) {
            QTest::qVerify(prepare(server), "prepared", "", __FILE__, __LINE__);
        }
        QList<int> &counts = usual[{server, restores}];
        if (counts.isEmpty()) {
            const QStringList faults = faultsAfter(restores, 0, 0, 0);
            QTest::qCompare(faults, QStringList(), "undisturbed", "in order", __FILE__, __LINE__);
            counts = QList<int>(control->counts.begin(), control->counts.end());
        }
        return counts.at(kind);
    }

    void setBack(bool restores)
    {
        const QString data = place.filePath(restores ? "damaged" : "new");
        TestDevice::shell("rm -rf " + dataRoot() + " && cp -a " + data + " " + dataRoot());
        const Files &held = entries[restores ? "new" : "old"];
        store->entries = onServer ? held : Files();
        putFiles(device->repositoryPath(), onServer ? Files() : held);
    }

    /// What is neither as it was nor as it was saved, and what the repository promises and does not hold.
    QStringList faultsOf(bool restores, const QString &data, const Files &held) const
    {
        QStringList faults;
        const Files before = live[restores ? "damaged" : "new"];
        const Files after = live["new"];
        Files now = items(data);
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

    /// What goes wrong when a call is struck; `control` tells how often such were made.
    QStringList faultsAfter(bool restores, int kind, int at, int error)
    {
        setBack(restores);
        std::fill(control->counts.begin(), control->counts.end(), 0);
        control->struckClass = kind;
        control->error = error;
        control->at = at;
        run(restores ? "startRestoreFromRepository" : "startSaveOnRepository");
        const bool struck = at > 0 && control->counts[kind] >= at;
        control->at = 0;
        QStringList faults;
        if (!serveAfresh(struck && error == 0)) {
            faults << "the service did not end well";
        }
        if (!device->allRun({"A", "B"})) {
            faults << "a module is stopped";
        }
        faults += faultsOf(restores, dataRoot(), repository());
        if (restores) {
            restore();
        } else if (!save() || uncompressed(repository()) != uncompressed(entries["new"])) {
            faults << "then the save is not whole";
        }
        run(restores ? "startSaveOnRepository" : "startRestoreFromRepository");
        if (!popUps.isEmpty() || items(dataRoot()) != live["new"] || !untrueLine(repository()).isEmpty()) {
            faults << "then not all is in order";
        }
        return faults;
    }

private Q_SLOTS:
    void initTestCase()
    {
        const QByteArray file = place.filePath("control").toUtf8();
        writeFile(file, QByteArray(sizeof(FaultControl), 0));
        const int opened = open(file.constData(), O_RDWR);
        void *mapped = mmap(nullptr, sizeof(FaultControl), PROT_READ | PROT_WRITE, MAP_SHARED, opened, 0);
        QVERIFY(mapped != MAP_FAILED);
        control = static_cast<FaultControl *>(mapped);
        qputenv("FAULT_CONTROL", file);
        const auto seed = quint32(qEnvironmentVariableIntValue("SEED"));
        random.seed(seed != 0 ? seed : QRandomGenerator::global()->generate());
    }

    void calls_data()
    {
        columns<bool, bool, int>("server", "restores", "kind");
        for (const bool server : {false, true}) {
            for (const bool restores : {false, true}) {
                for (int kind = 0; kind < FaultControl::classes; ++kind) {
                    const QString name = QString(restores ? "restore " : "save ") +
                                         (server ? "server " : "directory ") + kinds.at(kind).name;
                    row(name.toUtf8().constData(), server, restores, kind);
                }
            }
        }
    }
    /// Each call of a class, or a few by chance.
    void calls()
    {
        QFETCH(bool, server);
        QFETCH(bool, restores);
        QFETCH(int, kind);
        QStringList faults;
        const int total = usualCount(server, restores, kind);
        const auto strike = [&](int at, int error) {
            const QStringList found = faultsAfter(restores, kind, at, error);
            if (!found.isEmpty()) {
                faults << QString("%1 %2: %3")
                              .arg(error == 0 ? "killed at" : "failed at", QString::number(at),
                                   found.join(", "));
            }
            return control->counts[kind] >= at;
        };
        if (!whole && total > 0) {
            strike(random.bounded(total) + 1, random.bounded(2) == 0 ? 0 : kinds.at(kind).error);
        }
        for (const int error : {0, kinds.at(kind).error}) {
            for (int at = 1; whole && strike(at, error); ++at) {
            }
        }
        QVERIFY2(faults.isEmpty(), qPrintable("\n" + faults.join("\n")));
    }
};

QTEST_GUILESS_MAIN(tst_faults)
#include "tst_faults.moc"
