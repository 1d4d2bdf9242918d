#include "bench/FleetServer.h"
#include "bench/Load.h"
#include "bench/Measure.h"
#include "repository/HttpEngine.h"
#include "tests/support/NginxServer.h"
#include "tests/support/TestDevice.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <map>
#include <sys/resource.h>

// How many devices one server bears: the requests of recorded saves, replayed by many devices at once, each
// with connections and a certificate of its own. Devices and server share this machine's processors.

namespace {

constexpr int settleSeconds = 4;
constexpr int mostAtOnce = 100; ///< requests of a device, as the service has them

/// One request of a recorded save.
struct Recorded
{
    QByteArray method;
    QByteArray entry;
    qint64 size = 0; ///< of the body that was sent, or fetched
};

/// Requests that were under way together, one such set after the other.
using Save = QList<QList<Recorded>>;

/// The save of the service as it is, recorded by a server that it is behind.
class Recorder
{
public:
    Recorder() : server("server"), load(device, 1), measure(device) {}

    bool start()
    {
        load.make(device, Load::Groups::One);
        NginxServer::installTool(device.path(""));
        device.writeSettings("2", server.url());
        return device.startManagers() && measure.startService();
    }

    Save record(int changedPercent, int round)
    {
        if (changedPercent > 0) {
            load.change(changedPercent, round);
        }
        QThread::sleep(settleSeconds);
        const qsizetype position = readFile(server.store("../log/access.log")).size();
        return measure.run("startSaveOnRepository") ? requestsSince(position) : Save();
    }

private:
    /// A phase ends where the requests become of another kind.
    Save requestsSince(qsizetype position) const
    {
        Save save;
        QByteArray last;
        for (const QByteArray &line : readFile(server.store("../log/access.log")).mid(position).split('\n')) {
            const QByteArrayList fields = line.split('\t');
            if (fields.size() < 10) {
                continue;
            }
            const QByteArray entry = fields.at(7).mid(QByteArrayView("/save/").size());
            const bool isControl = entry.endsWith(".cksum") || entry.endsWith(".version");
            const QByteArray kind = fields.at(6) + (isControl ? "control" : "data");
            if (kind != last && (kind.startsWith("PUT") || last.startsWith("PUT") || save.isEmpty())) {
                save << QList<Recorded>();
            }
            last = kind;
            const bool isGet = fields.at(6) == "GET";
            save.last() << Recorded{fields.at(6), entry, fields.at(isGet ? 10 : 9).toLongLong()};
        }
        return save;
    }

    TestDevice device;
    NginxServer server;
    Load load;
    Measure measure;
};

/// Bodies of the sizes that were recorded.
class Bodies
{
public:
    QString ofSize(qint64 size)
    {
        QString path = directory.filePath(QString::number(size));
        if (!QFile::exists(path)) {
            writeFile(path, QByteArray(size, 'b'));
        }
        return path;
    }

private:
    QTemporaryDir directory;
};

/// One device that saves again and again until the time is over.
class Device
{
public:
    Device(const FleetServer &server, int number, const Save &save, Bodies &bodies)
        : engine({.baseUrl = server.url(number), .identity = server.identity(number)},
                 [this](quint64, const HttpResult &result) { note(result); })
    {
        for (const QList<Recorded> &phase : save) {
            phases << QList<std::pair<Recorded, QString>>();
            for (const Recorded &one : phase) {
                phases.last() << std::pair(one, one.method == "PUT" ? bodies.ofSize(one.size) : QString());
            }
        }
        base = server.url(number);
    }

    /// Store what the save will fetch.
    void prepare(Bodies &bodies)
    {
        QList<std::pair<Recorded, QString>> puts;
        for (const auto &phase : std::as_const(phases)) {
            for (const auto &[one, body] : phase) {
                if (one.method == "GET" && one.size > 0 && !one.entry.isEmpty()) {
                    puts << std::pair(Recorded{"PUT", one.entry, one.size}, bodies.ofSize(one.size));
                }
            }
        }
        replay(puts);
    }

    void run(const QDeadlineTimer &end)
    {
        while (!end.hasExpired()) {
            QElapsedTimer clock;
            clock.start();
            for (const auto &phase : phases) {
                replay(phase);
            }
            durations << double(clock.nsecsElapsed()) / 1e9;
        }
    }

    QList<double> durations; ///< of each save, in seconds
    int failures = 0;

private:
    void replay(const QList<std::pair<Recorded, QString>> &phase)
    {
        std::unique_lock lock(mutex);
        for (const auto &[one, body] : phase) {
            ended.wait(lock, [this] { return left < mostAtOnce; });
            HttpRequest request = {.url = base + (one.entry.isEmpty() ? "" : "/" + one.entry)};
            if (one.method == "PUT") {
                request.method = HttpRequest::Put;
                request.source = std::make_shared<DigestingFile>();
                request.source->openRegular(body);
            } else if (one.method == "DELETE") {
                request.method = HttpRequest::Delete;
            }
            ++left;
            engine.add(++number, request);
        }
        ended.wait(lock, [this] { return left == 0; });
    }

    void note(const HttpResult &result)
    {
        const std::lock_guard lock(mutex);
        const bool good = result.code == CURLE_OK && (isHttpSuccess(result.status) || result.status == 404);
        failures += good ? 0 : 1;
        --left;
        ended.notify_one();
    }

    std::mutex mutex;
    std::condition_variable ended;
    int left = 0;
    quint64 number = 0;
    QByteArray base;
    QList<QList<std::pair<Recorded, QString>>> phases;
    HttpEngine engine; ///< goes first: it tells the others
};

void replay(FleetServer &server, const char *what, const Save &save, int devices, int seconds)
{
    Bodies bodies;
    std::vector<std::unique_ptr<Device>> fleet;
    for (int number = 1; number <= devices; ++number) {
        fleet.push_back(std::make_unique<Device>(server, number, save, bodies));
    }
    for (const auto &device : fleet) {
        device->prepare(bodies);
    }
    const double processorBefore = server.processorTime();
    QElapsedTimer clock;
    clock.start();
    const QDeadlineTimer end(std::chrono::seconds{seconds});
    std::vector<std::unique_ptr<QThread>> threads;
    for (const auto &device : fleet) {
        threads.emplace_back(QThread::create([&device, &end] { device->run(end); }));
        threads.back()->start();
    }
    for (const auto &thread : threads) {
        thread->wait();
    }
    const double elapsed = double(clock.nsecsElapsed()) / 1e9;
    QList<double> durations;
    int failures = 0;
    for (const auto &device : fleet) {
        durations += device->durations;
        failures += device->failures;
    }
    std::sort(durations.begin(), durations.end());
    std::printf("%-16s %8d %12.0f %10.2f %10.2f %10.0f %10.1f %9d\n", what, devices,
                double(durations.size()) / elapsed * 3600, durations.at(durations.size() / 2),
                durations.at(durations.size() * 95 / 100),
                (server.processorTime() - processorBefore) / elapsed * 100, server.memory() / 1e6, failures);
    std::fflush(stdout);
    fleet.clear();
    server.clear();
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    QCommandLineParser parser;
    const QCommandLineOption seconds("seconds", "How long each fleet saves.", "N", "8");
    parser.addOptions({seconds});
    parser.addHelpOption();
    parser.process(application);
    if (!curl().fault.isEmpty()) {
        std::fprintf(stderr, "fleet: %s\n", qPrintable(curl().fault));
        return 1;
    }
    // Each device opens all the files of a phase.
    rlimit files = {};
    getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = files.rlim_max;
    setrlimit(RLIMIT_NOFILE, &files);
    std::map<int, Save> saves;
    {
        Recorder recorder;
        if (!recorder.start()) {
            return 1;
        }
        saves[100] = recorder.record(0, 0);
        saves[0] = (recorder.record(0, 0), recorder.record(0, 0));
        saves[1] = recorder.record(1, 1);
    }
    FleetServer server;
    if (!server.isRunning() || saves[100].isEmpty() || saves[0].isEmpty() || saves[1].isEmpty()) {
        std::fprintf(stderr, "fleet: nothing to replay, or no server\n");
        return 1;
    }
    std::printf("%-16s %8s %12s %10s %10s %10s %10s %9s\n", "", "devices", "saves/hour", "median s", "95 % s",
                "server %", "memory MB", "failures");
    const int length = parser.value(seconds).toInt();
    for (const int devices : {1, 10, 50, 100, 200, 500}) {
        replay(server, "nothing changed", saves[0], devices, length);
    }
    for (const int devices : {1, 10, 50, 100, 200, 500}) {
        replay(server, "1 % changed", saves[1], devices, length);
    }
    for (const int devices : {1, 10, 50}) {
        replay(server, "first save", saves[100], devices, length);
    }
    return 0;
}
