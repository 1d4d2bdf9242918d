#pragma once

#include <QByteArray>
#include <QList>

#include <utility>

/// Sends entries to systemd's journal by its native protocol: one datagram for each, or, where that would be
/// too large, a sealed file of memory.
///
/// May be used in any thread.
class JournalSocket
{
public:
    using Fields = QList<std::pair<QByteArray, QByteArray>>;

    /// The path of the socket that the journal listens on.
    explicit JournalSocket(QByteArray path = "/run/systemd/journal/socket");
    ~JournalSocket();

    JournalSocket(const JournalSocket &) = delete;
    JournalSocket &operator=(const JournalSocket &) = delete;

    /// Send one entry: names as the journal has them (capital letters, digits and underscores), and values
    /// that may hold anything. False when nobody listens, or does not take it within a second.
    bool send(const Fields &fields) const;

private:
    bool sendFile(const QByteArray &entry) const;
    bool sendMessage(const QByteArray &entry, int file) const;

    QByteArray path;
    int number;
};
