#include "pause/PauseKeeper.h"
#include "platform/core/Waiter.h"
#include "platform/DevicePaths.h"
#include "platform/records/ApplicationConfig.h"
#include "repository/DistantRepository.h"
#include "repository/LocalRepository.h"
#include "restorable/KnownModules.h"
#include "restore/RestoreOperation.h"
#include "save/SaveOperation.h"
#include "tests/support/DataTable.h"
#include "tests/support/StoreServer.h"
#include "tests/support/TestDevice.h"
#include "tests/support/TestMiddleware.h"

#include <QCryptographicHash>
#include <QDirIterator>

namespace {

/// A directory that can be reached for a number of requests only.
class FailingRepository : public Repository
{
public:
    explicit FailingRepository(const QString &directory)
        : Repository(LocalRepositoryType), directory(directory)
    {
    }
    ~FailingRepository() override { cancelRequests(noLongerInUse()); }

    QString getRepositoryUrl() const override { return directory.getRepositoryUrl(); }
    int limit = INT_MAX;
    int count = 0;

protected:
    void start(const RepositoryRequest &request) override
    {
        if (++count > limit) {
            finish({RequestOutcome::Failed, "cut off"});
            return;
        }
        directory.submit(request, [this](const RequestOutcome &outcome) { finish(outcome); });
    }
    void abort() override { directory.cancelRequests(noLongerInUse()); }

private:
    LocalRepository directory;
};

QByteArray digestOf(const QByteArray &content)
{
    return QCryptographicHash::hash(content, QCryptographicHash::Md5).toHex();
}

} // namespace

/// Saves and restores whose connection ends after each of their requests.
class tst_cutoff : public QObject
{
    Q_OBJECT

    using Files = QMap<QString, QByteArray>;

    QTemporaryDir root;
    TestMiddleware middleware;
    std::unique_ptr<StoreServer> store;
    std::shared_ptr<Repository> repository;

    QString live(const QString &item = {}) const { return root.path() + "/data/VYXApplication/" + item; }
    QString entryPath(const QString &entry = {}) const { return root.path() + "/repository/" + entry; }
    QString programPath() const { return DevicePaths::migrationProgram("A"); }

    static Files filesBelow(const QString &directory)
    {
        Files files;
        QDirIterator all(directory, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
        while (all.hasNext()) {
            const QString path = all.next();
            files.insert(path.mid(directory.size()), readFile(path));
        }
        return files;
    }

    static void putFiles(const QString &directory, const Files &files)
    {
        QDir(directory).removeRecursively();
        QDir().mkpath(directory);
        for (auto file = files.cbegin(); file != files.cend(); ++file) {
            writeFile(directory + file.key(), file.value());
        }
    }

    Files entries() const { return store ? store->entries : filesBelow(entryPath()); }
    void setEntries(const Files &entries) const
    {
        if (store) {
            store->entries = entries;
        } else {
            putFiles(entryPath(), entries);
        }
    }

    void describe(const QString &module, const QString &items) const
    {
        writeFile(DevicePaths::restorableDescription(module),
                  "<restorable>" + items.toUtf8() + "</restorable>");
    }

    /// Describe the modules and write their data as they were, or as they are to be saved.
    void setDevice(bool changed)
    {
        QDir(root.path() + "/data/VYXApplication").removeRecursively();
        QDir(root.path() + "/etc").removeRecursively();
        const QByteArray content = changed ? "new" : "old";
        ListApplicationConfig modules;
        for (const QString &module : changed ? QStringList{"A", "B", "D"} : QStringList{"A", "B", "C"}) {
            modules << ApplicationConfig(module, "", changed ? "2.0" : "1.0", "2026", "STARTED");
        }
        middleware.results["ApplicationManager.getModulesList"].value = QVariant::fromValue(modules);
        const QString appears = changed ? "<file>appears</file>" : "<file>goes</file><file>removed</file>";
        describe("A", "<databases><database name='d'/></databases><files><file zip='true'>z</file>"
                      "<file>stays</file>" +
                          appears + "</files>");
        describe("B", "<files><file>goes</file><file priority='low'>appears</file></files>");
        describe(changed ? "D" : "C", "<files><file>B/goes</file><file>own</file></files>");
        for (const char *item : {"A/z/f", "A/appears", "A/goes", "A/removed", "B/appears", "C/B/goes",
                                 "C/own", "D/B/goes", "D/own"}) {
            writeFile(live(item), item + content);
        }
        for (const char *item : {"A/stays", "B/goes"}) {
            writeFile(live(item), item);
        }
        TestDevice::sqlOnFile(live("A/d.data"), "CREATE TABLE t(v); INSERT INTO t VALUES('" + content + "')");
        writeFile(programPath(), content);
    }

    /// Run an operation whose repository is reached for that many requests; the number that it made.
    template <typename Operation> int run(void (*start)(Operation &), int limit = INT_MAX)
    {
        if (store) {
            store->requests.clear();
            store->behaviour = [limit](int number, const QString &, const QString &) {
                return number > limit ? StoreServer::Close : StoreServer::Proper;
            };
            repository = std::make_shared<DistantRepository>(store->url());
        } else {
            const auto failing = std::make_shared<FailingRepository>(entryPath());
            failing->limit = limit;
            repository = failing;
        }
        middleware.popups.clear();
        Waiter waiter;
        KnownModules modules(middleware);
        PauseKeeper pauses(middleware);
        Operation operation({middleware, waiter, modules, pauses, true, {}, repository});
        start(operation);
        return store ? int(store->requests.size()) : static_cast<FailingRepository &>(*repository).count;
    }
    int save(int limit = INT_MAX)
    {
        return run<SaveOperation>([](SaveOperation &operation) { operation.startSaveOnRepository(); }, limit);
    }
    int restore(int limit = INT_MAX)
    {
        return run<RestoreOperation>(
            [](RestoreOperation &operation) { operation.startRestoreFromRepository(); }, limit);
    }

    /// What the entry of an item holds, in the form of which its line has the digest; of a dump its rows.
    static QByteArray unpacked(const QByteArray &entry, const QString &kind)
    {
        const QTemporaryDir place;
        writeFile(place.filePath("e.gz"), entry);
        return TestDevice::shell("zcat " + place.filePath("e.gz") +
                                 (kind == "database"
                                      ? " | sqlite3 -bail " + place.filePath("d") + " && sqlite3 " +
                                            place.filePath("d") + " 'SELECT v FROM t'"
                                      : ""));
    }

    /// The first line of a listed module on this device whose entry does not hold what it promises.
    QString untrueLine() const
    {
        const Files held = entries();
        LinesByModule lines;
        for (const QString &module :
             QString::fromUtf8(held["modules-list.sav"]).split('\n', Qt::SkipEmptyParts)) {
            lines[module] = parseChecksumLines(held[module + ".cksum"]);
        }
        const SavedEntries names(lines);
        for (auto module = lines.cbegin(); module != lines.cend(); ++module) {
            for (const ChecksumLine &line :
                 KnownModules::isInstalled(module.key()) ? *module : ChecksumLines()) {
                const QByteArray entry = held[names.entry(module.key(), line).text()];
                const QByteArray content = line.isPlainFile() ? entry : unpacked(entry, line.kind());
                const bool right = line.kind() == "database" ? content == "old\n" || content == "new\n"
                                                             : digestOf(content) == line.digest().toUtf8();
                if (!line.digest().isEmpty() && !right) {
                    return module.key() + ":" + line.key();
                }
            }
        }
        return {};
    }

    static QByteArray rows(const QByteArray &database)
    {
        const QTemporaryDir place;
        writeFile(place.filePath("d"), database);
        return TestDevice::sqlOnFile(place.filePath("d"), "SELECT v FROM t");
    }

private Q_SLOTS:
    void init()
    {
        QFETCH(bool, server);
        qputenv("VYX_DEVICE_ROOT", root.path().toUtf8());
        writeFile(root.path() + "/data/dev_mode", {});
        store = server ? std::make_unique<StoreServer>() : nullptr;
        QDir(entryPath()).removeRecursively();
        QDir().mkpath(entryPath());
    }

    void saves_data()
    {
        columns<bool>("server");
        row("server", true);
        row("directory", false);
    }
    void saves()
    {
        setDevice(false);
        save();
        QCOMPARE(middleware.popups, QStringList());
        const Files before = entries();
        setDevice(true);
        const Files data = filesBelow(live());
        const int requests = save();
        QCOMPARE(middleware.popups, QStringList());
        const Files wanted = entries();
        QVERIFY(wanted != before && wanted["AMigration"] == "new" && untrueLine().isEmpty());
        for (int limit = 0; limit < requests; ++limit) {
            setEntries(before);
            save(limit);
            QCOMPARE(QString("%1: %2").arg(limit).arg(untrueLine()), QString("%1: ").arg(limit));
            QVERIFY(!middleware.popups.isEmpty());
            save();
            QCOMPARE(middleware.popups, QStringList());
            QCOMPARE(entries().keys(), wanted.keys());
            QCOMPARE(QString("%1, then: %2").arg(limit).arg(untrueLine()), QString("%1, then: ").arg(limit));
            for (const QString &entry : wanted.keys()) {
                QVERIFY2(entry.endsWith(".gz") || entries()[entry] == wanted[entry],
                         qPrintable(QString("%1 after %2").arg(entry).arg(limit)));
            }
            QVERIFY(filesBelow(live()) == data);
        }
        qInfo("%d points", requests);
    }

    void restores_data() { saves_data(); }
    void restores()
    {
        setDevice(false);
        save();
        setDevice(true);
        save();
        const Files kept = entries();
        const Files saved = filesBelow(live());
        Files damaged = saved;
        for (const char *file : {"A/stays", "A/z/f", "B/goes", "D/own"}) {
            damaged[file] = "damaged";
        }
        damaged.remove("B/appears");
        damaged["A/d.data"] = readFile(live("A/d.data")).replace("new", "xxx");
        int requests = 1;
        for (int limit = -1; limit < requests; ++limit) {
            putFiles(live(), damaged);
            const int made = restore(limit < 0 ? INT_MAX : limit);
            requests = limit < 0 ? made : requests;
            const Files now = filesBelow(live());
            for (const QString &file : saved.keys()) {
                const bool lost = file.endsWith(".data")
                                      ? rows(now[file]) != "new\n" && rows(now[file]) != "xxx\n"
                                      : now.value(file, "none") != saved[file] &&
                                            now.value(file, "none") != damaged.value(file, "none");
                QVERIFY2(!lost, qPrintable(QString("%1 after %2").arg(file).arg(limit)));
            }
            QVERIFY(entries() == kept);
            restore();
            QCOMPARE(middleware.popups, QStringList());
            Files restored = filesBelow(live());
            QCOMPARE(rows(restored.take("A/d.data")), "new\n");
            Files expected = saved;
            expected.remove("A/d.data");
            QVERIFY(restored == expected);
        }
        qInfo("%d points", requests);
    }
};

QTEST_GUILESS_MAIN(tst_cutoff)
#include "tst_cutoff.moc"
