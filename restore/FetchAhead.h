#pragma once

#include "restore/RestorePlanner.h"

#include <QHash>
#include <QList>
#include <QSet>
#include <QString>

#include <map>

class RepositorySession;

/// Fetches the archives and dumps of a restore in the order in which they will be put back, while those
/// before are: up to 64 MiB of them lie on the disk ahead, or 8 when these have more.
class FetchAhead
{
public:
    /// The session must outlive the object.
    explicit FetchAhead(RepositorySession &session) : session(session) {}

    /// What is to be fetched, most urgent first.
    void begin(const QList<PlannedItem> &items);

    /// Have these now, and wait for them with events served.
    void require(const QList<PlannedItem> &items);

    /// True when it lies at its place on the disk.
    bool isFetched(const PlannedItem &item) const { return fetched.contains(item.source); }

    /// Why it does not; empty when it was not required.
    QString fault(const PlannedItem &item) const { return faults.value(item.source); }

    /// It has been put back, or cannot be: there is room for others.
    void release(const PlannedItem &item);

    /// Text of the last request that failed; empty when none has.
    QString failure() const { return lastFailure; }

private:
    void submit(const PlannedItem &item, bool urgent);
    void submitNext();

    RepositorySession &session;
    QList<PlannedItem> waiting;
    QList<PlannedItem> failedAhead; ///< for want of room, say: they are tried again in their turn
    QSet<QString> underWay;
    std::map<QString, qint64> fetched; ///< sizes of those on the disk, by their paths
    QHash<QString, QString> faults;    ///< by path
    qint64 bytesOnDisk = 0;
    qint64 bytesEver = 0;
    qint64 countEver = 0;
    QString lastFailure;
};
