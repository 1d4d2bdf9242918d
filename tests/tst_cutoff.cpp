#include "pause/PauseKeeper.h"
#include "platform/core/Waiter.h"
#include "platform/DevicePaths.h"
#include "platform/records/ApplicationConfig.h"
#include "repository/DistantRepository.h"
#include "repository/LocalRepository.h"
#include "restore/RestoreOperation.h"
#include "save/SaveOperation.h"
#include "tests/support/DataTable.h"
#include "tests/support/Promises.h"
#include "tests/support/StoreServer.h"
#include "tests/support/TestMiddleware.h"

namespace {

/// A directory that can be reached for a number of requests only.
class FailingRepository : public LocalRepository
{
public:
    FailingRepository(const QString &directory, int limit) : LocalRepository(directory), limit(limit) {}
    int count = 0;

protected:
    void start(const RepositoryRequest &request) override
    {
        if (++count > limit) {
            return finish({RequestOutcome::Failed, "cut off"});
        }
        LocalRepository::start(request);
    }

private:
    const int limit;
};

} // namespace

/// Saves and restores whose connection ends after each of their requests.
class tst_cutoff : public QObject
{
    Q_OBJECT

    QTemporaryDir root;
    TestMiddleware middleware;
    std::unique_ptr<StoreServer> store;

    QString live(const QString &item = {}) const { return root.path() + "/data/VYXApplication/" + item; }
    QString entryPath(const QString &entry = {}) const { return root.path() + "/repository/" + entry; }

    Files entries() const { return store ? store->entries : filesBelow(entryPath()); }
    void setEntries(const Files &entries) const
    {
        if (!store) {
            return putFiles(entryPath(), entries);
        }
        store->entries = entries;
    }

    /// Describe the modules and write their data as they were, or as they are to be saved.
    void setDevice(bool changed)
    {
        TestDevice::shell("cd " + root.path() + "; rm -rf data/VYXApplication etc");
        const QByteArray content = changed ? "new" : "old";
        const char *const last = changed ? "D" : "C";
        const QMap<QString, QByteArray> items = {
            {"A", "<databases><database name='d'/></databases><files><file zip='true'>z</file>"
                  "<file>stays</file>" +
                      QByteArray(changed ? "<file>appears" : "<file>goes</file><file>removed")},
            {"B", "<files><file>goes</file><file priority='low'>appears"},
            {last, "<files><file>B/goes</file><file>own"}};
        ListApplicationConfig modules;
        for (const QString &module : items.keys()) {
            modules << ApplicationConfig(module, "", changed ? "2.0" : "1.0", "2026", "STARTED");
            writeFile(DevicePaths::restorableDescription(module),
                      "<restorable>" + items[module] + "</file></files></restorable>");
        }
        middleware.results["ApplicationManager.getModulesList"].value = QVariant::fromValue(modules);
        for (const char *item : {"A/z/f", "A/appears", "A/goes", "A/removed", "B/appears", "C/B/goes",
                                 "C/own", "D/B/goes", "D/own"}) {
            writeFile(live(item), item + content);
        }
        for (const char *item : {"A/stays", "B/goes"}) {
            writeFile(live(item), item);
        }
        TestDevice::sqlOnFile(live("A/d.data"), "CREATE TABLE t(v); INSERT INTO t VALUES('" + content + "')");
        writeFile(DevicePaths::migrationProgram("A"), content);
    }

    /// Run an operation whose repository is reached for that many requests; the number that it made.
    template <typename Operation, auto Start> int run(int limit)
    {
        const auto directory = std::make_shared<FailingRepository>(entryPath(), limit);
        std::shared_ptr<Repository> repository = directory;
        if (store) {
            store->requests.clear();
            store->behaviour = [limit](int number, const QString &, const QString &) {
                return number > limit ? StoreServer::Close : StoreServer::Proper;
            };
            repository = std::make_shared<DistantRepository>(store->url());
        }
        middleware.popups.clear();
        Waiter waiter;
        KnownModules modules(middleware);
        PauseKeeper pauses(middleware);
        Operation operation({middleware, waiter, modules, pauses, true, {}, repository});
        (operation.*Start)();
        return store ? int(store->requests.size()) : directory->count;
    }
    int save(int limit = INT_MAX) { return run<SaveOperation, &SaveOperation::startSaveOnRepository>(limit); }
    int restore(int limit = INT_MAX)
    {
        return run<RestoreOperation, &RestoreOperation::startRestoreFromRepository>(limit);
    }

    static QByteArray rows(const QByteArray &database)
    {
        const QTemporaryDir place;
        writeFile(place.filePath("d"), database);
        return TestDevice::sqlOnFile(place.filePath("d"), "SELECT v FROM t");
    }

    QString untrueEntry() const { return untrueLine(entries()); }

private Q_SLOTS:
    void init()
    {
        QFETCH(bool, server);
        qputenv("VYX_DEVICE_ROOT", root.path().toUtf8());
        writeFile(root.path() + "/data/dev_mode", {});
        store = server ? std::make_unique<StoreServer>() : nullptr;
        putFiles(entryPath(), {});
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
        QVERIFY(wanted != before && wanted["AMigration"] == "new" && untrueEntry().isEmpty());
        for (int limit = 0; limit < requests; ++limit) {
            setEntries(before);
            save(limit);
            const QString place = QString("after %1: ").arg(limit);
            QCOMPARE(place + untrueEntry(), place);
            QVERIFY(!middleware.popups.isEmpty());
            save();
            QCOMPARE(middleware.popups, QStringList());
            QCOMPARE(entries().keys(), wanted.keys());
            QCOMPARE(place + untrueEntry(), place);
            QVERIFY2(uncompressed(entries()) == uncompressed(wanted), qPrintable(place));
            QVERIFY(filesBelow(live()) == data);
        }
    }

    void restores_data() { saves_data(); }
    void restores()
    {
        setDevice(false);
        save();
        setDevice(true);
        save();
        const Files kept = entries();
        Files saved = filesBelow(live());
        Files damaged = saved;
        for (const char *file : {"A/stays", "A/z/f", "B/goes", "D/own"}) {
            damaged[file] = "damaged";
        }
        damaged.remove("B/appears");
        damaged["A/d.data"].replace("new", "xxx");
        Files before = damaged;
        before["A/d.data"] = "xxx\n";
        saved["A/d.data"] = "new\n";
        const auto found = [this] {
            Files files = filesBelow(live());
            files["A/d.data"] = rows(files["A/d.data"]);
            return files;
        };
        for (int limit = 0, requests = 1; requests > limit; ++limit) {
            putFiles(live(), damaged);
            requests = restore(limit);
            const Files now = found();
            for (const QString &file : saved.keys()) {
                const QByteArray content = now.value(file, "none");
                QVERIFY2(content == saved[file] || content == before.value(file, "none"),
                         qPrintable(QString("%1 after %2").arg(file).arg(limit)));
            }
            QVERIFY(entries() == kept);
            restore();
            QCOMPARE(middleware.popups, QStringList());
            QVERIFY(found() == saved);
        }
    }
};

QTEST_GUILESS_MAIN(tst_cutoff)
#include "tst_cutoff.moc"
