#include "repository/RepositorySession.h"

#include "platform/core/Waiter.h"
#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"
#include "repository/DistantRepository.h"
#include "repository/RepositoryUrl.h"

#include <QFile>

#include <utility>

using namespace std::chrono_literals;

namespace {

constexpr auto inactivityLimit = 60s;
constexpr auto lastChance = 500ms;
constexpr auto hasToEnd = "The operation has to end";

} // namespace

RepositorySession::RepositorySession(std::shared_ptr<Repository> held, Waiter &waiter)
    : repository(std::move(held)), waiter(waiter)
{
}

RepositorySession::~RepositorySession()
{
    const int left = *pending;
    pending.reset();
    if (left > 0) {
        repository->cancelRequests("The operation has ended");
    }
}

RepositoryState RepositorySession::state()
{
    const QString url = repository->getRepositoryUrl();
    const bool developerMode = QFile::exists(DevicePaths::developerModeMarker());
    if (!developerMode && !RepositoryUrl::isSecure(url)) {
        return {RepositoryState::Insecure, "Unsecured URL"};
    }
    if (auto *const distant = qobject_cast<DistantRepository *>(repository.get())) {
        // The developer mode may have ended since the repository was chosen.
        distant->ctlCheckEnabled = distant->ctlCheckEnabled || !developerMode;
        if (RepositoryUrl::isSecure(url) && !distant->checkCtlStatus(waiter, true)) {
            return {RepositoryState::NotTrusted, "CTL is not deployed"};
        }
    }
    const RequestOutcome outcome = outcomeOf({RepositoryRequest::Check, {}, {}});
    return {outcome.stored() ? RepositoryState::Usable : RepositoryState::Unreachable, outcome.text};
}

QString RepositorySession::shownUrl() const
{
    return RepositoryUrl::forDisplay(repository->getRepositoryUrl());
}

RequestOutcome RepositorySession::getFileAndWait(const QString &entry, const QString &path, qint64 largest)
{
    bool givenUp = false;
    RequestOutcome outcome = outcomeOf({RepositoryRequest::Get, entry, path, {}, largest}, &givenUp);
    if (givenUp) {
        logError("The request for '%1' was not finished by the repository", entry);
    }
    return outcome;
}

void RepositorySession::submit(const RepositoryRequest &request, Repository::Done done)
{
    ++*pending;
    const std::weak_ptr<int> counted = pending;
    repository->submit(request, [this, counted, done = std::move(done)](const RequestOutcome &outcome) {
        const std::shared_ptr<int> count = counted.lock();
        if (!count) {
            return;
        }
        --*count;
        unanswered = unanswered || outcome.cause == RequestOutcome::NoAnswer;
        if (done) {
            done(outcome);
        }
    });
}

void RepositorySession::waitForRequests()
{
    waitFor([this] { return *pending == 0; });
}

void RepositorySession::waitFor(const std::function<bool()> &condition)
{
    // A request that fails may be submitted once more.
    while (*pending > 0 && !condition()) {
        waitUntil([&] { return *pending == 0 || condition(); });
    }
}

RequestOutcome RepositorySession::outcomeOf(const RepositoryRequest &request, bool *givenUp)
{
    const auto outcome = std::make_shared<std::optional<RequestOutcome>>();
    submit(request, [outcome](const RequestOutcome &arrived) { *outcome = arrived; });
    const bool ended = waitUntil([&outcome] { return outcome->has_value(); });
    if (givenUp != nullptr) {
        *givenUp = !ended;
    }
    return outcome->value();
}

bool RepositorySession::waitUntil(const std::function<bool()> &condition)
{
    const auto progress = [this] { return repository->transferProgress() + static_cast<quint64>(*pending); };
    const WaitOutcome outcome = waiter.waitUntil(condition, inactivityLimit, progress);
    if (outcome == WaitOutcome::Met) {
        return true;
    }
    if (outcome == WaitOutcome::Ended) {
        awaitChanges();
    }
    repository->cancelRequests(outcome == WaitOutcome::Ended ? hasToEnd : "Nothing has moved for a minute");
    return false;
}

/// What an entry holds is not known any more when its change is given up.
void RepositorySession::awaitChanges()
{
    repository->cancelQueued(hasToEnd);
    if (!std::exchange(changesAwaited, true) && repository->hasChangesUnderWay()) {
        const Waiter::Grace grace(waiter, lastChance);
        waiter.waitUntil([this] { return !repository->hasChangesUnderWay(); }, lastChance);
    }
}
