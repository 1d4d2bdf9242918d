#pragma once

#include <QObject>
#include <QTcpServer>
#include <QTcpSocket>

/// A line to a server on this machine that breaks.
class Cutter : public QObject
{
    Q_OBJECT

public:
    enum Way {
        Once,   ///< the connection ends that carries the byte, and no other
        Always, ///< each connection ends that has carried so many bytes
        Silent, ///< from that byte on nothing goes through any more, on no connection
    };

    explicit Cutter(quint16 target) : target(target)
    {
        connect(&server, &QTcpServer::newConnection, this, [this] { accept(); });
        server.listen(QHostAddress::LocalHost);
    }

    quint16 port() const { return server.serverPort(); }

    /// Break after so many bytes in both directions, counted from now; negative for never.
    void breakAfter(qint64 bytes, Way how = Once)
    {
        limit = bytes;
        way = how;
        carried = 0;
        silent = false;
    }
    qint64 bytes() const { return carried; }

private:
    void accept()
    {
        QTcpSocket *const from = server.nextPendingConnection();
        auto *const to = new QTcpSocket(from);
        to->connectToHost(QHostAddress::LocalHost, target);
        carry(from, to);
        carry(to, from);
        connect(from, &QTcpSocket::disconnected, from, &QObject::deleteLater);
        connect(to, &QTcpSocket::disconnected, from, &QTcpSocket::disconnectFromHost);
    }

    void carry(QTcpSocket *from, QTcpSocket *to)
    {
        connect(from, &QTcpSocket::readyRead, to, [=, this] {
            QByteArray part = from->readAll();
            QTcpSocket *const connection = from->parent() == to ? to : from;
            const qint64 before = way == Always ? connection->property("carried").toLongLong() : carried;
            const bool breaks = limit >= 0 && before + part.size() > limit;
            carried += part.size();
            connection->setProperty("carried", before + part.size());
            part = breaks && !silent ? part.left(limit - before) : part;
            if (!silent) {
                to->write(part);
            }
            silent = silent || (breaks && way == Silent);
            if (breaks && way != Silent) {
                limit = way == Once ? -1 : limit;
                to->flush();
                from->abort();
                to->abort();
            }
        });
    }

    quint16 target;
    qint64 limit = -1;
    Way way = Once;
    qint64 carried = 0;
    bool silent = false;
    QTcpServer server;
};
