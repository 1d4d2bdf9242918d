#include "bench/Line.h"

#include <QElapsedTimer>
#include <QTcpSocket>
#include <QTimer>

#include <algorithm>
#include <deque>
#include <memory>

namespace {

constexpr qint64 portion = 16384;
constexpr double queueMs = 100;
constexpr qint64 mostQueued = qint64{8} * 1024 * 1024;

double now()
{
    static const QElapsedTimer clock = [] {
        QElapsedTimer started;
        started.start();
        return started;
    }();
    return double(clock.nsecsElapsed()) / 1e6;
}

struct Queue
{
    std::deque<std::pair<double, QByteArray>> portions; ///< with the moment of their arrival
    qint64 bytes = 0;
    bool ends = false;
};

} // namespace

Line::Line(quint16 target, int delayMs, qint64 bitsPerSecond)
    : target(target), delayMs(delayMs), bytesPerMs(double(bitsPerSecond) / 8000)
{
    connect(&server, &QTcpServer::newConnection, this, &Line::accept);
    server.listen(QHostAddress::LocalHost);
}

void Line::accept()
{
    while (QTcpSocket *from = server.nextPendingConnection()) {
        auto *const to = new QTcpSocket(from);
        from->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        to->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        from->setReadBufferSize(portion * 4);
        to->setReadBufferSize(portion * 4);
        to->connectToHost(QHostAddress::LocalHost, target);
        carry(from, to, toServer);
        carry(to, from, fromServer);
        connect(from, &QTcpSocket::disconnected, from, &QObject::deleteLater);
    }
}

void Line::carry(QTcpSocket *from, QTcpSocket *to, Direction &direction)
{
    const auto queue = std::make_shared<Queue>();
    auto *const timer = new QTimer(from);
    timer->setSingleShot(true);
    timer->setTimerType(Qt::PreciseTimer);
    const auto take = [=, this, &direction] {
        const qint64 most = bytesPerMs > 0 ? qint64(bytesPerMs * (queueMs + delayMs)) : mostQueued;
        while (from->bytesAvailable() > 0 && queue->bytes < most) {
            const QByteArray bytes = from->read(portion);
            direction.bytes += bytes.size();
            const double begin = std::max(now(), direction.freeAt);
            direction.freeAt = bytesPerMs > 0 ? begin + double(bytes.size()) / bytesPerMs : begin;
            queue->portions.emplace_back(direction.freeAt + delayMs, bytes);
            queue->bytes += bytes.size();
        }
        if (!queue->portions.empty() && !timer->isActive()) {
            timer->start(int(std::max(0.0, queue->portions.front().first - now())));
        }
    };
    connect(from, &QTcpSocket::readyRead, timer, take);
    connect(timer, &QTimer::timeout, timer, [=] {
        while (!queue->portions.empty() && queue->portions.front().first <= now() + 0.5) {
            to->write(queue->portions.front().second);
            queue->bytes -= queue->portions.front().second.size();
            queue->portions.pop_front();
        }
        take();
        if (queue->ends && queue->portions.empty()) {
            to->disconnectFromHost();
        }
    });
    connect(from, &QTcpSocket::disconnected, timer, [=] {
        queue->ends = true;
        take();
        if (queue->portions.empty()) {
            to->disconnectFromHost();
        }
    });
}
