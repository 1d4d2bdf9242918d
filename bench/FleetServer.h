#pragma once

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>

struct TlsIdentity;

/// One nginx for many devices, and certificates for them.
class FleetServer
{
public:
    FleetServer();
    ~FleetServer();

    FleetServer(const FleetServer &) = delete;
    FleetServer &operator=(const FleetServer &) = delete;

    bool isRunning() const { return process.state() == QProcess::Running; }

    /// The base URL of a device.
    QByteArray url(int device) const;
    /// A certificate of its own for a device, with a key that all devices share.
    TlsIdentity identity(int device) const;

    /// Remove what all devices have saved.
    void clear() const;

    /// Seconds of processor time and bytes of memory that its processes have used so far.
    double processorTime() const;
    double memory() const;

private:
    QList<QByteArray> processes() const;

    QTemporaryDir directory;
    QProcess process;
    quint16 port = 0;
};
