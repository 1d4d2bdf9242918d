#pragma once

#include <QHash>
#include <QList>
#include <QMap>
#include <QObject>
#include <QString>
#include <QTcpServer>

#include <functional>

class QTcpSocket;

/// A store behind HTTP/1.1 on the loopback interface that keeps entries in memory and misbehaves on demand.
class StoreServer : public QObject
{
    Q_OBJECT

public:
    enum Behaviour {
        Proper,
        Silent,  ///< accepts the request and never answers
        Hangs,   ///< answers with a header and never sends the body
        CutBody, ///< closes in the middle of the body
        Close,   ///< closes without an answer
        Fail,    ///< answers with `failStatus`
        Held,    ///< answers when it is released
    };

    StoreServer();

    /// Base URL of the store, without a slash at the end.
    QString url() const { return QString("http://127.0.0.1:%1/save").arg(server.serverPort()); }

    bool isHolding() const { return held != nullptr; }
    /// Answer the request that is held, when its connection still stands.
    void release();

    /// How to treat a request, counted from 1 ("PUT", "GET" or "DELETE" and the entry; empty for the base
    /// URL).
    std::function<Behaviour(int number, const QString &method, const QString &entry)> behaviour;
    int failStatus = 500;

    QMap<QString, QByteArray> entries;
    QByteArray listing;      ///< what it says of its entries; empty when it does not
    QStringList requests;    ///< "METHOD entry" of each request
    QByteArrayList rawHeads; ///< heads as they were on the wire
    bool overlapped = false; ///< a request came while another was not answered

private:
    void accept();
    void read(QTcpSocket &socket);
    bool takeRequest(QTcpSocket &socket);
    void answer(QTcpSocket &socket, const QString &method, const QString &entry, const QByteArray &body);
    void treat(QTcpSocket &socket, Behaviour wanted, const QString &method, const QString &entry,
               const QByteArray &body);
    static void send(QTcpSocket &socket, int status, const QByteArray &body, qsizetype sent = -1);

    QHash<QTcpSocket *, QByteArray> buffers;
    QTcpSocket *busyWith = nullptr;
    std::function<void()> held;
    QTcpServer server; // goes first, and its sockets with it
};
