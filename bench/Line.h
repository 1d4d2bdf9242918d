#pragma once

#include <QObject>
#include <QTcpServer>

class QTcpSocket;

/// A line to a server on this machine: what goes through it arrives later, and no faster than the line is.
/// It has no loss and queues for a tenth of a second.
class Line : public QObject
{
    Q_OBJECT

public:
    /// `delayMs` each way; `bitsPerSecond` in each direction, 0 for as many as the machine can.
    Line(quint16 target, int delayMs, qint64 bitsPerSecond);

    quint16 port() const { return server.serverPort(); }
    /// Bytes that went to the server, and came from it.
    qint64 sent() const { return toServer.bytes; }
    qint64 received() const { return fromServer.bytes; }

private:
    /// One direction of all connections together.
    struct Direction
    {
        double freeAt = 0; ///< when the line has room again, in ms
        qint64 bytes = 0;
    };

    void accept();
    void carry(QTcpSocket *from, QTcpSocket *to, Direction &direction);

    quint16 target;
    int delayMs;
    double bytesPerMs;
    Direction toServer;
    Direction fromServer;
    QTcpServer server;
};
