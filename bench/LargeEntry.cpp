#include "bench/LargeEntry.h"

#include "platform/core/Waiter.h"
#include "repository/DistantRepository.h"
#include "repository/RepositorySession.h"
#include "tests/support/NginxServer.h"

#include <QElapsedTimer>

#include <algorithm>
#include <functional>

namespace {

constexpr qint64 size = qint64{1} << 30;

double secondsOf(const std::function<bool()> &work)
{
    QElapsedTimer clock;
    clock.start();
    return work() ? double(clock.nsecsElapsed()) / 1e9 : -1;
}

double median(QList<double> all)
{
    std::ranges::sort(all);
    return all.first() < 0 ? -1 : all.at(all.size() / 2);
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

bool curl(const QStringList &arguments)
{
    QProcess process;
    process.start("curl",
                  QStringList{"-sS", "--fail", "--cacert", NginxServer::pki("ca.pem"), "--cert",
                              NginxServer::pki("device.pem"), "--key", NginxServer::pki("device.key")} +
                      arguments);
    return process.waitForFinished(-1) && process.exitCode() == 0;
}

} // namespace

QList<DistantFigures> measureLargeEntry(int rounds)
{
    QList<DistantFigures> all;
    const QTemporaryDir place;
    const QString file = place.filePath("large");
    const QString back = place.filePath("back");
    TestDevice::shell(QString("head -c %1 /dev/urandom >%2").arg(QString::number(size), file));
    qputenv("VYX_DEVICE_ROOT", place.path().toUtf8());
    NginxServer::installTool(place.path());
    for (const char *protocol : {"http2", "http1"}) {
        const NginxServer server("server", protocol);
        const auto repository = std::make_shared<DistantRepository>(server.url());
        Waiter waiter;
        repository->setUp(waiter);
        RepositorySession session(repository, waiter);
        const QString url = server.url() + "/large";
        const auto ask = [&](RepositoryRequest::Method method, const QString &path) {
            return session.outcomeOf({method, "large", path}).stored();
        };
        const bool asksFirst = ask(RepositoryRequest::Check, {});
        forgetMostMemory();
        const double before = mostMemory();
        QList<double> puts, gets, curlPuts, curlGets;
        for (int round = 0; round < rounds && asksFirst; ++round) {
            const QString version = qstrcmp(protocol, "http2") == 0 ? "--http2" : "--http1.1";
            curlPuts << secondsOf([&] { return curl({version, "-T", file, url}); });
            puts << secondsOf([&] { return ask(RepositoryRequest::Put, file); });
            curlGets << secondsOf([&] { return curl({version, "-o", back, url}); });
            gets << secondsOf([&] { return ask(RepositoryRequest::Get, back); });
        }
        if (puts.isEmpty() ||
            std::min({median(puts), median(gets), median(curlPuts), median(curlGets)}) < 0) {
            return {};
        }
        constexpr double allowed = 1.2;
        Cost cost;
        cost.memory = mostMemory() - before;
        for (const bool sends : {true, false}) {
            const double floor = median(sends ? curlPuts : curlGets);
            cost.seconds = median(sends ? puts : gets);
            all << DistantFigures{.line = QString("1 GB, ") + protocol,
                                  .operation = sends ? "PUT" : "GET",
                                  .cost = cost,
                                  .goal = allowed * floor,
                                  .floor = floor,
                                  .requests = rounds};
        }
    }
    return all;
}
