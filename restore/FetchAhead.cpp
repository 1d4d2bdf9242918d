#include "restore/FetchAhead.h"

#include "platform/logger/VYXLogger.h"
#include "repository/RepositorySession.h"

#include <QFile>
#include <QFileInfo>

namespace {

constexpr qsizetype mostAhead = 8;
constexpr qint64 mostBytesAhead = qint64{64} * 1024 * 1024;

} // namespace

void FetchAhead::begin(const QList<PlannedItem> &items)
{
    waiting = items;
    submitNext();
}

/// What is under way counts as large as the others were so far.
void FetchAhead::submitNext()
{
    const auto hasRoom = [this] {
        const qsizetype ahead = underWay.size() + static_cast<qsizetype>(fetched.size());
        const qint64 expected = countEver > 0 ? underWay.size() * (bytesEver / countEver) : mostBytesAhead;
        return ahead < mostAhead || bytesOnDisk + expected < mostBytesAhead;
    };
    while (!waiting.isEmpty() && hasRoom()) {
        submit(waiting.takeFirst(), false);
    }
}

void FetchAhead::submit(const PlannedItem &item, bool urgent)
{
    const QString path = item.source;
    const QString entry = item.entry;
    underWay << path;
    session.submit({RepositoryRequest::Get, entry, path}, [=, this](const RequestOutcome &outcome) {
        underWay.remove(path);
        if (outcome.stored()) {
            const qint64 size = QFileInfo(path).size();
            fetched.emplace(path, size);
            bytesOnDisk += size;
            bytesEver += size;
            ++countEver;
        } else if (!urgent) {
            failedAhead << item;
        } else {
            faults.insert(path, outcome.text.isEmpty() ? "the repository does not hold it" : outcome.text);
            lastFailure = QString("Could not fetch '%1' from the repository").arg(entry);
            logError("%1", lastFailure);
        }
        submitNext();
    });
}

void FetchAhead::require(const QList<PlannedItem> &items)
{
    QSet<QString> wanted;
    for (const PlannedItem &item : items) {
        wanted << item.source;
    }
    const auto submitFrom = [&](QList<PlannedItem> &list) {
        QList<PlannedItem> urgent;
        list.removeIf([&](const PlannedItem &item) {
            const bool isUrgent = wanted.contains(item.source);
            urgent += isUrgent ? QList<PlannedItem>{item} : QList<PlannedItem>();
            return isUrgent;
        });
        for (const PlannedItem &item : std::as_const(urgent)) {
            submit(item, true);
        }
    };
    submitFrom(waiting);
    session.waitFor([&] { return !underWay.intersects(wanted); });
    submitFrom(failedAhead);
    session.waitFor([&] { return !underWay.intersects(wanted); });
}

void FetchAhead::release(const PlannedItem &item)
{
    const auto one = fetched.extract(item.source);
    if (!one.empty()) {
        bytesOnDisk -= one.mapped();
        QFile::remove(item.source);
    }
    submitNext();
}
