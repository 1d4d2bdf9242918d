#include "tests/support/StoreServer.h"

#include <QPointer>
#include <QTcpSocket>
#include <QUrl>

#include <utility>

StoreServer::StoreServer()
{
    connect(&server, &QTcpServer::newConnection, this, &StoreServer::accept);
    if (!server.listen(QHostAddress::LocalHost)) {
        qFatal("no port for a server");
    }
}

void StoreServer::accept()
{
    while (QTcpSocket *socket = server.nextPendingConnection()) {
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] { read(*socket); });
        connect(socket, &QTcpSocket::disconnected, this, [this, socket] {
            buffers.remove(socket);
            busyWith = busyWith == socket ? nullptr : busyWith;
            socket->deleteLater();
        });
    }
}

void StoreServer::read(QTcpSocket &socket)
{
    if (buffers[&socket].isEmpty()) {
        overlapped = overlapped || (busyWith != nullptr && busyWith != &socket);
        busyWith = &socket;
    }
    buffers[&socket] += socket.readAll();
    while (takeRequest(socket)) {
    }
}

/// True when there may be another request.
bool StoreServer::takeRequest(QTcpSocket &socket)
{
    QByteArray &buffer = buffers[&socket];
    const qsizetype headEnd = buffer.indexOf("\r\n\r\n");
    if (headEnd < 0) {
        return false;
    }
    const QByteArray head = buffer.left(headEnd);
    qsizetype length = 0;
    for (const QByteArray &line : head.split('\n')) {
        if (line.toLower().startsWith("content-length:")) {
            length = line.mid(15).trimmed().toLongLong();
        }
    }
    if (buffer.size() < headEnd + 4 + length) {
        return false;
    }
    const QByteArray body = buffer.mid(headEnd + 4, length);
    buffer.remove(0, headEnd + 4 + length);
    const QByteArrayList words = head.split(' ');
    rawHeads << head;
    QString entry = QUrl::fromPercentEncoding(words.value(1)).mid(QString("/save").size());
    answer(socket, QString::fromUtf8(words.first()), entry.remove(0, 1), body);
    return buffers.contains(&socket) && !buffers[&socket].isEmpty();
}

void StoreServer::send(QTcpSocket &socket, int status, const QByteArray &body, qsizetype sent)
{
    socket.write("HTTP/1.1 " + QByteArray::number(status) + " Text\r\nContent-Length: " +
                 QByteArray::number(body.size()) + "\r\n\r\n" + body.left(sent < 0 ? body.size() : sent));
    socket.flush();
}

void StoreServer::answer(QTcpSocket &socket, const QString &method, const QString &entry,
                         const QByteArray &body)
{
    requests << method + " " + entry;
    const Behaviour wanted = behaviour ? behaviour(int(requests.size()), method, entry) : Proper;
    if (wanted == Held) {
        held = [=, this, waiting = QPointer<QTcpSocket>(&socket)] {
            if (waiting && waiting->state() == QTcpSocket::ConnectedState) {
                treat(*waiting, Proper, method, entry, body);
            }
        };
    } else if (wanted != Silent) {
        treat(socket, wanted, method, entry, body);
    }
}

void StoreServer::release()
{
    if (const auto request = std::exchange(held, nullptr)) {
        request();
    }
}

void StoreServer::treat(QTcpSocket &socket, Behaviour wanted, const QString &method, const QString &entry,
                        const QByteArray &body)
{
    busyWith = nullptr;
    const QByteArray content = entry.isEmpty() ? "store" : entries.value(entry);
    switch (wanted) {
    case Fail:
        return send(socket, failStatus, "no");
    case Close:
        return socket.abort();
    case Hangs:
        return send(socket, 200, QByteArray(1000, 'x'), 10);
    case CutBody:
        send(socket, 200, QByteArray(1000, 'x'), 500);
        socket.disconnectFromHost();
        return;
    default:
        break;
    }
    if (method == "PROPFIND" && !listing.isEmpty()) {
        send(socket, 207, listing);
    } else if (method == "PUT") {
        entries.insert(entry, body);
        send(socket, 201, {});
    } else if (method == "DELETE") {
        send(socket, entries.remove(entry) > 0 ? 204 : 404, {});
    } else {
        send(socket, entry.isEmpty() || entries.contains(entry) ? 200 : 404, content);
    }
}
