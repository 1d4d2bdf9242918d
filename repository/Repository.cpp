#include "repository/Repository.h"

#include "platform/logger/VYXLogger.h"

#include <QCoreApplication>

#include <algorithm>
#include <utility>

namespace {

bool namesAnEntry(const QString &name)
{
    return !name.isEmpty() && name != "." && name != ".." && !name.contains('/');
}

bool changes(const RepositoryRequest &request)
{
    return request.method == RepositoryRequest::Put || request.method == RepositoryRequest::Remove;
}

} // namespace

Repository::~Repository()
{
    closed = true;
    for (const auto &[number, pending] : std::exchange(running, {})) {
        tell(pending, {RequestOutcome::Failed, noLongerInUse()});
    }
    for (const Pending &pending : std::exchange(parked, {})) {
        tell(pending, {RequestOutcome::Failed, noLongerInUse()});
    }
    for (const Pending &pending : std::exchange(queue, {})) {
        tell(pending, {RequestOutcome::Failed, noLongerInUse(), true});
    }
}

void Repository::submit(const RepositoryRequest &request, Done done)
{
    const Pending pending = {request, std::move(done)};
    if (!closed) {
        queue << pending;
        scheduleNext();
        return;
    }
    // Nothing of this object is left by the time the event loop gets there.
    const auto refuse = [pending] { tell(pending, {RequestOutcome::Failed, noLongerInUse(), true}); };
    QMetaObject::invokeMethod(QCoreApplication::instance(), refuse, Qt::QueuedConnection);
}

QString Repository::tooLarge(const QString &entry, qint64 limit)
{
    return QString("Entry '%1' is refused: it has more than %2 bytes").arg(entry, QString::number(limit));
}

void Repository::cancelRequests(const QString &why)
{
    const bool kept = abortKeepsEntry();
    const QList<Pending> queued = std::exchange(queue, {});
    const QList<Pending> together = std::exchange(parked, {});
    const auto underWay = std::exchange(running, {});
    carryingOut = false;
    const QList<RequestOutcome> ends = together.isEmpty() ? QList<RequestOutcome>() : abortParked(why);
    if (!underWay.empty()) {
        abort();
    }
    // From here on this object may be gone.
    for (qsizetype number = 0; number < together.size(); ++number) {
        tell(together.at(number), ends.at(number));
    }
    for (const auto &[number, pending] : underWay) {
        tell(pending, {RequestOutcome::Failed, why, kept});
    }
    for (const Pending &pending : queued) {
        tell(pending, {RequestOutcome::Failed, why, true});
    }
}

void Repository::cancelQueued(const QString &why)
{
    for (const Pending &pending : std::exchange(queue, {})) {
        tell(pending, {RequestOutcome::Failed, why, true});
    }
}

bool Repository::hasChangesUnderWay() const
{
    return !abortKeepsEntry() &&
           std::ranges::any_of(running, [](const auto &one) { return changes(one.second.request); });
}

void Repository::finish(RequestNumber number, const RequestOutcome &outcome)
{
    const auto finished = running.extract(number);
    noteProgress();
    scheduleNext();
    if (!finished.empty()) {
        tell(finished.mapped(), outcome);
    }
}

Repository::Pending Repository::takeOnlyRunning()
{
    return running.extract(running.begin()).mapped();
}

void Repository::park()
{
    parked << takeOnlyRunning();
    noteProgress();
    scheduleNext();
}

void Repository::retryAfterParked()
{
    queue.prepend(takeOnlyRunning());
    carryingOut = true;
    carryOutParked();
}

void Repository::finishParked(const QList<RequestOutcome> &outcomes)
{
    const QList<Pending> finished = std::exchange(parked, {});
    carryingOut = false;
    noteProgress();
    scheduleNext();
    for (qsizetype number = 0; number < finished.size(); ++number) {
        tell(finished.at(number), outcomes.at(number));
    }
}

void Repository::scheduleNext()
{
    QMetaObject::invokeMethod(this, &Repository::startNext, Qt::QueuedConnection);
}

bool Repository::mayBegin(const RepositoryRequest &request) const
{
    return running.size() < mostAtOnce() &&
           std::none_of(running.cbegin(), running.cend(),
                        [&](const auto &one) { return one.second.request.entry == request.entry; });
}

void Repository::startNext()
{
    if (carryingOut || !mayBegin(queue.isEmpty() ? RepositoryRequest() : queue.first().request)) {
        return;
    }
    if (!parked.isEmpty() && (queue.isEmpty() || !changes(queue.first().request) || isFull())) {
        carryingOut = true;
        carryOutParked();
        return;
    }
    if (queue.isEmpty()) {
        return;
    }
    const RequestNumber number = ++lastNumber;
    const RepositoryRequest request = running.emplace(number, queue.takeFirst()).first->second.request;
    noteProgress();
    if (!queue.isEmpty()) {
        scheduleNext();
    }
    const bool asksForAll =
        request.method == RepositoryRequest::Check || request.method == RepositoryRequest::List;
    if (asksForAll || namesAnEntry(request.entry)) {
        start(number, request);
        return;
    }
    const QString text = QString("'%1' names no file of the repository").arg(request.entry);
    logError("%1", text);
    finish(number, {RequestOutcome::Failed, text, true});
}

void Repository::tell(const Pending &pending, const RequestOutcome &outcome)
{
    if (pending.done) {
        pending.done(outcome);
    }
}
