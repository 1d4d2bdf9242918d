#include "bench/Measure.h"

#include "tests/support/TestDevice.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QRegularExpression>
#include <QtEndian>
#include <QTimer>

#include <algorithm>
#include <unistd.h>

namespace {

constexpr int pingPeriodMs = 4;

/// The number behind a name in a file of /proc.
qint64 valueOf(const QByteArray &text, const QByteArray &name)
{
    const qsizetype at = text.indexOf(name);
    return at < 0 ? 0
                  : text.mid(at + name.size(), 40)
                        .trimmed()
                        .split('\n')
                        .value(0)
                        .split(' ')
                        .value(0)
                        .toLongLong();
}

/// Asks the service for its settings again and again.
class Ping : public QObject
{
public:
    explicit Ping(const TestDevice &device) : device(device)
    {
        timer.callOnTimeout(this, [this] { ask(); });
        timer.start(pingPeriodMs);
    }
    double longest() const { return std::max(longestMs, call && !call->isFinished() ? elapsed() : 0.0); }

private:
    double elapsed() const { return double(clock.nsecsElapsed()) / 1e6; }
    void ask()
    {
        if (call && !call->isFinished()) {
            return;
        }
        call = std::make_unique<QDBusPendingCallWatcher>(device.callLater("printSettings"));
        clock.start();
        connect(call.get(), &QDBusPendingCallWatcher::finished, this,
                [this] { longestMs = std::max(longestMs, elapsed()); });
    }

    const TestDevice &device;
    QTimer timer;
    QElapsedTimer clock;
    std::unique_ptr<QDBusPendingCallWatcher> call;
    double longestMs = 0;
};

} // namespace

double medianOf(QList<double> values)
{
    std::sort(values.begin(), values.end());
    return values.isEmpty() ? 0 : values.at(values.size() / 2);
}

Cost medianOf(const QList<Cost> &costs)
{
    const auto median = [&](double Cost::*figure) {
        QList<double> values;
        for (const Cost &cost : costs) {
            values << cost.*figure;
        }
        return medianOf(values);
    };
    const auto most = [&](double Cost::*figure) {
        double value = 0;
        for (const Cost &cost : costs) {
            value = std::max(value, cost.*figure);
        }
        return value;
    };
    return {median(&Cost::seconds),    median(&Cost::processor), median(&Cost::pause),
            most(&Cost::longestPause), most(&Cost::silence),     median(&Cost::children),
            median(&Cost::written),    most(&Cost::memory)};
}

bool Measure::startService()
{
    device.write("children", QByteArray(sizeof(long), 0));
    qputenv("BENCH_CHILDREN", device.path("children").toUtf8());
    qputenv("LD_PRELOAD", CHILDREN_LIBRARY);
    qputenv("VYX_LOG_LEVEL", "6");
    const bool started = device.startService("VYXSaveRestore");
    qunsetenv("LD_PRELOAD");
    qunsetenv("VYX_LOG_LEVEL");
    return started;
}

QByteArray Measure::status(const QString &file) const
{
    return readFile(QString("/proc/%1/%2").arg(device.service().processId()).arg(file));
}

Measure::Counters Measure::counters() const
{
    Counters now;
    const QByteArray stat = status("stat");
    const QByteArrayList fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
    for (int field = 11; field <= 14; ++field) { // own and children's time, for the user and for the system
        now.processor += fields.value(field).toDouble() / double(sysconf(_SC_CLK_TCK));
    }
    now.written = valueOf("\n" + status("io"), "\nwrite_bytes:");
    now.children = qFromUnaligned<long>(readFile(device.path("children")).constData());
    now.log = readFile(device.path("ApplicationManager.log")).size();
    return now;
}

std::optional<Cost> Measure::run(const QString &method)
{
    writeFile(QString("/proc/%1/clear_refs").arg(device.service().processId()), "5");
    const Counters before = counters();
    const Ping ping(device);
    QElapsedTimer clock;
    clock.start();
    const QDBusPendingCall call = device.callLater(method);
    QDBusPendingCallWatcher watcher(call);
    QEventLoop loop;
    QObject::connect(&watcher, &QDBusPendingCallWatcher::finished, &loop, &QEventLoop::quit);
    loop.exec();
    Cost cost;
    cost.seconds = double(clock.nsecsElapsed()) / 1e9;
    if (call.isError() || call.reply().arguments().value(0, true) == QVariant(false)) {
        return std::nullopt;
    }
    const Counters after = counters();
    cost.processor = after.processor - before.processor;
    cost.children = double(after.children - before.children);
    cost.written = double(after.written - before.written) / 1000;
    cost.memory = double(valueOf(status("status"), "VmHWM:"));
    cost.silence = ping.longest();
    const QList<double> pauses = pausesSince(before.log);
    cost.pause = medianOf(pauses);
    cost.longestPause = pauses.isEmpty() ? 0 : *std::max_element(pauses.cbegin(), pauses.cend());
    return cost;
}

QList<double> Measure::pausesSince(qsizetype position) const
{
    static const QRegularExpression line("Was paused for (\\d+) us");
    QList<double> pauses;
    const QString log = QString::fromUtf8(readFile(device.path("ApplicationManager.log")).mid(position));
    for (auto match = line.globalMatch(log); match.hasNext();) {
        pauses << match.next().captured(1).toDouble() / 1000;
    }
    return pauses;
}
