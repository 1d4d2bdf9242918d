#include "bench/Distant.h"
#include "bench/LargeEntry.h"
#include "bench/Load.h"
#include "bench/Report.h"
#include "tests/support/TestDevice.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QThread>

#include <cstdio>

// Measures saves and restores on a stand-in device with the repository in a directory or on a server.

namespace {

/// A file that was changed this lately is not believed to be what it was.
constexpr int settleSeconds = 4;

class Bench
{
public:
    Bench(int scale, int rounds) : rounds(rounds), load(device, scale), measure(device) {}

    bool run()
    {
        load.make(device);
        if (!device.startManagers() || !measure.startService()) {
            return false;
        }
        return measureFirstSaves() && measureSaves() && measureRestores();
    }

    QList<Figures> figures() const { return measured; }
    QList<Floor> floors() const { return measureFloors(device, load) + measureOthers(device, load); }

private:
    /// What is done before each run is not measured.
    template <typename Prepare>
    bool repeat(const QString &what, const QString &method, const Cost &goal, Prepare prepare)
    {
        QList<Cost> costs;
        for (int round = 0; round < rounds; ++round) {
            prepare(round);
            const auto cost = measure.run(method);
            if (!cost) {
                std::fprintf(stderr, "bench: '%s' failed\n", qPrintable(what));
                return false;
            }
            costs << *cost;
        }
        measured << Figures{what, medianOf(costs), goal};
        return true;
    }

    bool measureFirstSaves()
    {
        return repeat("first save", save,
                      {.seconds = 1.2, .pause = 10, .longestPause = 25, .silence = 50, .memory = 25000},
                      [this](int) { TestDevice::shell("rm -rf '" + device.repositoryPath() + "'*"); });
    }
    bool measureSaves()
    {
        QThread::sleep(settleSeconds);
        const auto change = [this](int percent) {
            return [this, percent](int) {
                load.change(percent, ++changes);
                QThread::sleep(settleSeconds);
            };
        };
        const bool remembered = measure.run(save).has_value();
        return remembered &&
               repeat("save, nothing changed", save,
                      {.seconds = 0.25,
                       .pause = 10,
                       .longestPause = 25,
                       .silence = 50,
                       .children = 0.5,
                       .written = 200,
                       .memory = 25000},
                      [](int) {}) &&
               repeat("save, 1 % changed", save,
                      {.seconds = 0.4, .pause = 10, .longestPause = 25, .silence = 50, .memory = 25000},
                      change(1)) &&
               repeat("save, 5 % changed", save,
                      {.pause = 10, .longestPause = 25, .silence = 50, .memory = 25000}, change(5));
    }
    bool measureRestores()
    {
        const QByteArray saved = load.digests();
        const bool good =
            repeat("whole restore", restore, {.seconds = 1.2, .pause = 15, .silence = 50, .memory = 25000},
                   [this](int) { load.removeAll(); }) &&
            repeat("restore, 1 % damaged", restore,
                   {.seconds = 0.45, .pause = 15, .silence = 50, .memory = 25000}, [this](int) {
                       load.change(1, ++changes);
                       QThread::sleep(settleSeconds);
                   });
        const QByteArrayList after = load.digests().split('\n');
        for (const QByteArray &line : saved.split('\n')) {
            if (good && !after.contains(line)) {
                std::fprintf(stderr, "bench: not restored: %s\n", line.constData());
            }
        }
        return good && after == saved.split('\n');
    }

    const QString save = "startSaveOnRepository";
    const QString restore = "startRestoreFromRepository";
    int rounds;
    int changes = 0;
    TestDevice device;
    Load load;
    Measure measure;
    QList<Figures> measured;
};

/// A module is stopped for as long as its database is copied.
std::optional<Figures> measureLargeDatabase()
{
    constexpr int rows = 50000;
    constexpr double factor = 1.2;
    constexpr double allowance = 8;
    TestDevice device;
    Measure measure(device);
    device.addModule("Large", "<databases><database name='d'/></databases>");
    device.sql("Large", "d",
               QString("CREATE TABLE t(v); WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n "
                       "WHERE i < %1) INSERT INTO t SELECT randomblob(4000) FROM n")
                   .arg(rows));
    const double copy = secondsOfCopy(device.dataPath("Large", "d.data"));
    if (!device.startManagers() || !measure.startService()) {
        return std::nullopt;
    }
    const auto cost = measure.run("startSaveOnRepository");
    const QString what = QString("a 200 MB database (cp: %1 ms)").arg(copy * 1000, 0, 'f', 0);
    return cost ? std::optional(Figures{what, *cost, {.pause = factor * copy * 1000 + allowance}})
                : std::nullopt;
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    QCommandLineParser parser;
    const QCommandLineOption scale("scale", "Times 20 modules.", "N", "1");
    const QCommandLineOption rounds("rounds", "Runs of each operation.", "N", "5");
    const QCommandLineOption json("json", "Print a JSON object.");
    const QCommandLineOption https("https",
                                   "Over lines of several kinds to a server, instead of a directory.");
    const QCommandLineOption line("line", "With --https, over this line alone: \"40 ms\", say.", "NAME");
    parser.addOptions({scale, rounds, json, https, line});
    parser.addHelpOption();
    parser.process(application);
    if (parser.isSet(https)) {
        const int times = std::max(parser.value(rounds).toInt(), 1);
        auto figures = measureDistant(times, parser.value(line));
        if (parser.value(line).isEmpty() || parser.value(line) == "1 GB") {
            figures += measureLargeEntry(std::min(times, 3));
        }
        (parser.isSet(json) ? printDistantJson : printDistantTable)(figures);
        return figures.isEmpty() ? 1 : 0;
    }
    Bench bench(std::max(parser.value(scale).toInt(), 1), std::max(parser.value(rounds).toInt(), 1));
    if (!bench.run()) {
        return 1;
    }
    const auto large = measureLargeDatabase();
    if (!large) {
        return 1;
    }
    (parser.isSet(json) ? printJson : printTable)(bench.figures() << *large, bench.floors());
    return 0;
}
