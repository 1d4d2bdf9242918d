#include "bench/Distant.h"

#include "bench/Floors.h"
#include "bench/Line.h"
#include "bench/Load.h"
#include "tests/support/NginxServer.h"
#include "tests/support/TestDevice.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>
#include <QThread>
#include <QUrl>

#include <algorithm>
#include <cstdio>

namespace {

constexpr int settleSeconds = 4;
constexpr qint64 slowLine = 10'000'000;

struct Kind
{
    const char *name;
    const char *protocol;
    int delayMs; ///< each way
    qint64 rate;
    double firstSave, unchanged, changed, restore; ///< goals in seconds; negative: what the line needs
    int rounds;
};

const QList<Kind> kinds = {
    {"loopback", "http2", 0, 0, 1.5, 0.4, 0.6, 1.5, 3},
    {"40 ms", "http2", 20, 0, 3.0, 0.7, 1.0, 2.5, 3},
    {"40 ms, HTTP/1.1", "http1", 20, 0, 8, 0, 0, 8, 3},
    {"40 ms, 10 Mbit/s", "http2", 20, slowLine, -1, 0.8, 0, -1, 1},
};

class DistantBench
{
public:
    explicit DistantBench(const Kind &kind)
        : kind(kind), server("server", kind.protocol),
          line(quint16(QUrl(server.url()).port()), kind.delayMs, kind.rate), load(device, 1), measure(device)
    {
    }

    bool run(int rounds)
    {
        load.make(device, Load::Groups::One);
        NginxServer::installTool(device.path(""));
        device.writeSettings("2", QString("https://127.0.0.1:%1/save").arg(line.port()));
        if (!device.startManagers() || !measure.startService()) {
            return false;
        }
        rounds = std::min(rounds, kind.rounds);
        const QString save = "startSaveOnRepository";
        const bool first = repeat("first save", save, kind.firstSave, rounds,
                                  [this](int) { TestDevice::shell("rm -rf '" + server.store() + "'*"); });
        if (!first) {
            return false;
        }
        measured.last().floor = floorOfPuts();
        QThread::sleep(settleSeconds);
        return measure.run(save) && repeat("nothing changed", save, kind.unchanged, rounds, [](int) {}) &&
               repeat("1 % changed", save, kind.changed, rounds,
                      [this](int round) {
                          load.change(1, round);
                          QThread::sleep(settleSeconds);
                      }) &&
               repeat("whole restore", "startRestoreFromRepository", kind.restore, rounds,
                      [this](int) { load.removeAll(); }) &&
               noteFloorOfGets();
    }

    const QList<DistantFigures> &figures() const { return measured; }

private:
    QString accessLog() const { return server.store("../log/access.log"); }

    template <typename Prepare>
    bool repeat(const QString &what, const QString &method, double goal, int rounds, Prepare prepare)
    {
        QList<Cost> costs;
        DistantFigures figures{kind.name, what, {}, goal};
        for (int round = 0; round < rounds; ++round) {
            prepare(round);
            const qsizetype position = readFile(accessLog()).size();
            const qint64 sent = line.sent();
            const qint64 received = line.received();
            const auto cost = measure.run(method);
            if (!cost) {
                std::fprintf(stderr, "bench: '%s' failed\n", qPrintable(what));
                return false;
            }
            costs << *cost;
            figures.sent = double(line.sent() - sent) / 1e6;
            figures.received = double(line.received() - received) / 1e6;
            count(position, figures);
        }
        if (goal < 0) {
            const double bytes = std::max(figures.sent, figures.received) * 1e6;
            figures.goal = 1.08 * bytes * 8 / double(kind.rate) + 1;
        }
        figures.cost = medianOf(costs);
        measured << figures;
        return true;
    }

    void count(qsizetype position, DistantFigures &figures) const
    {
        constexpr int connectionField = 2;
        QSet<QByteArray> connections;
        QSet<QByteArray> resumed;
        figures.requests = 0;
        for (const QByteArray &text : readFile(accessLog()).mid(position).split('\n')) {
            const QByteArrayList fields = text.split('\t');
            if (fields.size() <= connectionField) {
                continue;
            }
            ++figures.requests;
            connections << fields.at(connectionField);
            if (fields.last() == "r") {
                resumed << fields.at(connectionField);
            }
        }
        figures.connections = connections.size();
        figures.handshakes = connections.size() - resumed.size();
    }

    /// curl with the same entries over the same line, all at once.
    double floorOfPuts() { return floorOf("upload-file"); }

    bool noteFloorOfGets()
    {
        measured.last().floor = floorOf("output");
        return true;
    }
    double floorOf(const QString &option)
    {
        if (kind.rate > 0) {
            return 0;
        }
        const QString copies = device.path("copies/");
        TestDevice::shell("rm -rf '" + copies + "'; cp -r '" + server.store() + "' '" + copies + "'");
        QByteArray text;
        for (const QString &entry : QDir(copies).entryList(QDir::Files)) {
            const QString url = QString("https://127.0.0.1:%1/save/").arg(line.port()) +
                                QString::fromLatin1(QUrl::toPercentEncoding(entry, "+"));
            QString path = copies + entry;
            path.replace('"', R"(\")");
            text += (option + R"( = ")" + path + R"(")" + "\nurl = " + url + "\n").toUtf8();
        }
        device.write("curl.conf", text);
        const bool isNew = QString(kind.protocol) == "http2";
        QProcess curl;
        QEventLoop loop;
        QObject::connect(&curl, &QProcess::finished, &loop, &QEventLoop::quit);
        QElapsedTimer clock;
        clock.start();
        curl.setStandardOutputFile(QProcess::nullDevice());
        curl.start("curl",
                   {"-sS", "-Z", "--parallel-max", isNew ? "100" : "6", isNew ? "--http2" : "--http1.1",
                    "--cacert", NginxServer::pki("ca.pem"), "--cert", NginxServer::pki("device.pem"), "--key",
                    NginxServer::pki("device.key"), "-K", device.path("curl.conf")});
        loop.exec();
        return double(clock.nsecsElapsed()) / 1e9;
    }

    const Kind &kind;
    TestDevice device;
    NginxServer server;
    Line line;
    Load load;
    Measure measure;
    QList<DistantFigures> measured;
};

} // namespace

QList<DistantFigures> measureDistant(int rounds, const QString &line)
{
    QList<DistantFigures> all;
    for (const Kind &kind : kinds) {
        if (!line.isEmpty() && line != kind.name) {
            continue;
        }
        DistantBench bench(kind);
        if (!bench.run(rounds)) {
            return {};
        }
        all << bench.figures();
    }
    return all;
}

void printDistantTable(const QList<DistantFigures> &figures)
{
    std::printf("%-18s %-16s %14s %8s %8s %10s %9s %9s %11s %10s %9s %10s\n", "", "", "seconds", "curl s",
                "cpu s", "memory kB", "requests", "connect.", "handshakes", "sent MB", "recv. MB",
                "silence ms");
    for (const DistantFigures &row : figures) {
        const QString missed = row.goal > 0 && row.cost.seconds > row.goal
                                   ? QString(" >%1").arg(row.goal, 0, 'f', 1)
                                   : QString();
        std::printf("%-18s %-16s %14s %8.2f %8.2f %10.0f %9lld %9lld %11lld %10.2f %9.2f %10.1f\n",
                    qPrintable(row.line), qPrintable(row.operation),
                    qPrintable(QString::number(row.cost.seconds, 'f', 2) + missed), row.floor,
                    row.cost.processor, row.cost.memory, row.requests, row.connections, row.handshakes,
                    row.sent, row.received, row.cost.silence);
    }
}

void printDistantJson(const QList<DistantFigures> &figures)
{
    QJsonArray rows;
    for (const DistantFigures &row : figures) {
        rows << QJsonObject{{"line", row.line},
                            {"operation", row.operation},
                            {"seconds", row.cost.seconds},
                            {"curlSeconds", row.floor},
                            {"processorSeconds", row.cost.processor},
                            {"memoryKb", row.cost.memory},
                            {"requests", row.requests},
                            {"connections", row.connections},
                            {"handshakes", row.handshakes},
                            {"sentMb", row.sent},
                            {"receivedMb", row.received},
                            {"silenceMs", row.cost.silence}};
    }
    std::printf("%s", QJsonDocument(QJsonObject{{"distant", rows}}).toJson().constData());
}
