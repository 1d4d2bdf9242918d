#pragma once

#include <QByteArray>
#include <QTimer>

/// Tells systemd how this process is, as units with Type=notify or WatchdogSec= want it.
///
/// The messages go to the datagram socket that NOTIFY_SOCKET names, a path or "@" and an abstract name;
/// without the variable nothing is sent. A message that cannot be sent is lost: the service is of use without
/// it. The variables of the environment are taken away, so that no child speaks for this process.
class SystemdNotifier
{
public:
    SystemdNotifier();

    /// The process is ready. From now on, where WATCHDOG_USEC asks for it, the event loop says twice in that
    /// time (microseconds) that it runs: also from within the nested loop of a wait.
    void ready();
    /// The process has begun to end.
    void stopping() const;

private:
    void send(const QByteArray &message) const;

    QByteArray socketName;
    QTimer watchdog;
};
