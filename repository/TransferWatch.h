#pragma once

#include <QObject>
#include <QString>
#include <QTimer>

#include <chrono>

class QNetworkReply;

/// Gives a transfer up that is slower than 1,000 bytes a second, averaged over each window of time, or whose
/// answer is longer than an answer may be that nobody reads. It goes with its reply.
///
/// Until the first byte moves, and while an answer is waited for, nothing is judged: the limit of inactivity
/// holds then. An upload is seen in steps of the socket's buffer; there is one within each limit of
/// inactivity, so a window must hold several of these.
class TransferWatch : public QObject
{
    Q_OBJECT

public:
    TransferWatch(QNetworkReply &reply, std::chrono::milliseconds window);

    /// So many bytes have moved since the last call.
    void noteMoved(qint64 bytes);
    /// So many bytes of an upload have moved in all.
    void noteUploaded(qint64 bytes, qint64 total);
    /// Read what has arrived and forget it.
    void dropAnswer();
    /// Abort the transfer; the first reason stays.
    void giveUp(const QString &why);

    /// Why the transfer was given up; empty when it was not.
    static QString reasonOf(const QNetworkReply &reply);

private:
    void judge();

    QNetworkReply &reply;
    QTimer window;
    qint64 moved = 0; ///< in the present window
    qint64 uploaded = 0;
    qint64 dropped = 0;
    QString reason;
};
