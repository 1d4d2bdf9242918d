#include "platform/core/SystemdNotifier.h"

#include "platform/Descriptor.h"

#include <QObject>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

QByteArray taken(const char *variable)
{
    QByteArray value = qgetenv(variable);
    qunsetenv(variable);
    return value;
}

/// Half of the time after which systemd takes this process for hung; 0 when nothing of the kind was said, or
/// was said to another process.
std::chrono::milliseconds watchdogPeriod()
{
    const std::chrono::microseconds limit(taken("WATCHDOG_USEC").toLongLong());
    const QByteArray process = taken("WATCHDOG_PID");
    if (limit.count() <= 0 || (!process.isEmpty() && process.toLongLong() != getpid())) {
        return {};
    }
    constexpr std::chrono::milliseconds shortest(1);
    constexpr std::chrono::milliseconds longest = std::chrono::hours(24);
    return std::clamp(std::chrono::duration_cast<std::chrono::milliseconds>(limit / 2), shortest, longest);
}

} // namespace

SystemdNotifier::SystemdNotifier() : socketName(taken("NOTIFY_SOCKET"))
{
    watchdog.setInterval(watchdogPeriod());
    QObject::connect(&watchdog, &QTimer::timeout, &watchdog, [this] { send("WATCHDOG=1"); });
}

void SystemdNotifier::ready()
{
    send("READY=1");
    if (watchdog.interval() > 0) {
        watchdog.start();
    }
}

void SystemdNotifier::stopping() const
{
    send("STOPPING=1");
}

void SystemdNotifier::send(const QByteArray &message) const
{
    struct sockaddr_un address = {};
    const auto length = size_t(socketName.size());
    if (length < 2 || length >= sizeof address.sun_path || !(socketName[0] == '/' || socketName[0] == '@')) {
        return;
    }
    address.sun_family = AF_UNIX;
    std::copy(socketName.cbegin(), socketName.cend(), std::begin(address.sun_path));
    if (socketName[0] == '@') {
        address.sun_path[0] = '\0'; // a name that no file system knows
    }
    const Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sendto(socket.number(), message.constData(), size_t(message.size()), MSG_NOSIGNAL,
           reinterpret_cast<const struct sockaddr *>(&address),
           socklen_t(offsetof(struct sockaddr_un, sun_path) + length));
}
