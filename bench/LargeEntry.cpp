#include "bench/LargeEntry.h"

#include "platform/core/Waiter.h"
#include "repository/DistantRepository.h"
#include "repository/RepositorySession.h"
#include "tests/support/NginxServer.h"

#include <QElapsedTimer>

#include <algorithm>
#include <functional>
#include <unistd.h>

namespace {

constexpr qint64 size = qint64{1} << 30;

/// What was written before is on the disk by then.
double secondsOf(const std::function<bool()> &work)
{
    sync();
    QElapsedTimer clock;
    clock.start();
    return work() ? double(clock.nsecsElapsed()) / 1e9 : -1;
}

/// The most memory that this process has had, in kB, from now on.
double mostMemory()
{
    const QByteArray status = readFile("/proc/self/status");
    return status.mid(status.indexOf("VmHWM:") + 6).trimmed().split(' ').first().toDouble();
}
void forgetMostMemory()
{
    writeFile("/proc/self/clear_refs", "5");
}

bool curl(const QStringList &arguments, const QString &digested = {})
{
    QProcess digest;
    QProcess process;
    if (!digested.isEmpty()) {
        digest.start("md5sum", {digested});
    }
    process.start("curl",
                  QStringList{"-sS", "--fail", "--cacert", NginxServer::pki("ca.pem"), "--cert",
                              NginxServer::pki("device.pem"), "--key", NginxServer::pki("device.key")} +
                      arguments);
    const bool done = process.waitForFinished(-1) && process.exitCode() == 0;
    return (digested.isEmpty() || digest.waitForFinished(-1)) && done;
}

struct Floored
{
    QString operation;
    QList<double> ours;
    QList<double> floor;
};

using Ask = std::function<bool(RepositoryRequest::Method, const QString &)>;

/// One of each, by curl and by the repository; false when one failed. A save needs the digest of what it
/// sends, too: `md5sum` beside.
bool measureRound(QList<Floored> &all, const QString &place, const QStringList &server, const Ask &ask)
{
    const QString file = place + "/large";
    const QString back = place + "/back";
    const QStringList up = server + QStringList{"-T", file};
    all[0].floor << secondsOf([&] { return curl(up); });
    all[1].floor << secondsOf([&] { return curl(up, file); });
    all[0].ours << secondsOf([&] { return ask(RepositoryRequest::Put, file); });
    all[1].ours << all[0].ours.last();
    QFile::remove(back);
    all[2].floor << secondsOf([&] { return curl(server + QStringList{"-o", back}); });
    QFile::remove(back);
    all[2].ours << secondsOf([&] { return ask(RepositoryRequest::Get, back); });
    return std::ranges::all_of(
        all, [](const Floored &each) { return std::min(each.ours.last(), each.floor.last()) >= 0; });
}

DistantFigures figuresOf(const Floored &each, Cost cost, const char *protocol, int rounds)
{
    constexpr double allowed = 1.2;
    cost.seconds = medianOf(each.ours);
    const double floor = medianOf(each.floor);
    return {.line = QString("1 GB, ") + protocol,
            .operation = each.operation,
            .cost = cost,
            .goal = allowed * floor,
            .floor = floor,
            .requests = rounds};
}

} // namespace

QList<DistantFigures> measureLargeEntry(int rounds)
{
    QList<DistantFigures> figures;
    const QTemporaryDir place;
    TestDevice::shell(
        QString("head -c %1 /dev/urandom >%2").arg(QString::number(size), place.filePath("large")));
    qputenv("VYX_DEVICE_ROOT", place.path().toUtf8());
    NginxServer::installTool(place.path());
    for (const char *protocol : {"http2", "http1"}) {
        const NginxServer server("server", protocol);
        const auto repository = std::make_shared<DistantRepository>(server.url());
        Waiter waiter;
        repository->setUp(waiter);
        RepositorySession session(repository, waiter);
        const Ask ask = [&](RepositoryRequest::Method method, const QString &path) {
            return session.outcomeOf({method, "large", path}).stored();
        };
        if (!ask(RepositoryRequest::Check, {})) {
            return {};
        }
        const QStringList to = {qstrcmp(protocol, "http2") == 0 ? "--http2" : "--http1.1",
                                server.url() + "/large"};
        QList<Floored> warm = {{"PUT", {}, {}}, {"PUT, md5sum", {}, {}}, {"GET", {}, {}}};
        QList<Floored> all = warm;
        bool good = measureRound(warm, place.path(), to, ask);
        forgetMostMemory();
        const double before = mostMemory();
        for (int round = 0; round < rounds && good; ++round) {
            good = measureRound(all, place.path(), to, ask);
        }
        if (!good) {
            return {};
        }
        Cost cost;
        cost.memory = mostMemory() - before;
        for (const Floored &each : all) {
            figures << figuresOf(each, cost, protocol, rounds);
        }
    }
    return figures;
}
