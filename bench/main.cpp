#include "bench/Load.h"
#include "bench/Report.h"
#include "tests/support/TestDevice.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QThread>

#include <cstdio>

// Measures saves and restores on a stand-in device with the repository in a directory.

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

    const QList<Figures> &figures() const { return measured; }
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

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    QCommandLineParser parser;
    const QCommandLineOption scale("scale", "Times 20 modules.", "N", "1");
    const QCommandLineOption rounds("rounds", "Runs of each operation.", "N", "5");
    const QCommandLineOption json("json", "Print a JSON object.");
    parser.addOptions({scale, rounds, json});
    parser.addHelpOption();
    parser.process(application);
    Bench bench(std::max(parser.value(scale).toInt(), 1), std::max(parser.value(rounds).toInt(), 1));
    if (!bench.run()) {
        return 1;
    }
    (parser.isSet(json) ? printJson : printTable)(bench.figures(), bench.floors());
    return 0;
}
