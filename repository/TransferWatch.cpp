#include "repository/TransferWatch.h"

#include <QNetworkReply>

#include <utility>

namespace {

constexpr qint64 leastBytesPerSecond = 1000;
constexpr qint64 longestAnswer = qint64{1024} * 1024;

} // namespace

TransferWatch::TransferWatch(QNetworkReply &reply, std::chrono::milliseconds length)
    : QObject(&reply), reply(reply)
{
    window.setInterval(length);
    connect(&window, &QTimer::timeout, this, &TransferWatch::judge);
}

void TransferWatch::noteMoved(qint64 bytes)
{
    moved += bytes;
    if (!window.isActive()) {
        window.start();
    }
}

void TransferWatch::noteUploaded(qint64 bytes, qint64 total)
{
    noteMoved(bytes - std::exchange(uploaded, bytes));
    if (bytes == total) {
        window.stop();
        moved = 0;
    }
}

void TransferWatch::dropAnswer()
{
    const qint64 bytes = reply.readAll().size();
    dropped += bytes;
    noteMoved(bytes);
    if (dropped > longestAnswer) {
        giveUp(QString("The server's answer has more than %1 bytes").arg(longestAnswer));
    }
}

void TransferWatch::giveUp(const QString &why)
{
    if (reason.isEmpty()) {
        reason = why;
        window.stop();
        reply.abort();
    }
}

QString TransferWatch::reasonOf(const QNetworkReply &reply)
{
    const auto *const watch = reply.findChild<const TransferWatch *>();
    return watch != nullptr ? watch->reason : QString();
}

void TransferWatch::judge()
{
    const qint64 least = leastBytesPerSecond * window.interval() / 1000;
    if (moved < least) {
        giveUp(QString("The transfer is slower than %1 bytes per second").arg(leastBytesPerSecond));
    }
    moved = 0;
}
