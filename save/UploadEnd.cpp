#include "catalogue/ItemNames.h"
#include "platform/core/Waiter.h"
#include "repository/RepositorySession.h"
#include "save/Upload.h"

// How an upload that has to end before its time leaves the repository.

using namespace std::chrono_literals;

namespace {

constexpr auto longestEnd = 500ms;

} // namespace

void UploadPlan::postpone(const QSet<ItemIdentity> &allBut)
{
    for (const QString &module : current.lines().keys()) {
        for (const PlannedSend &send : sends(module)) {
            if (!allBut.contains(ItemIdentity(module, send.line.identity()))) {
                note(send, SendResult::Untouched);
            }
        }
    }
}

/// Of what was not sent, the repository holds what it held, and is to promise it again.
void Upload::endEarly()
{
    const Waiter::Grace grace(waiter, longestEnd);
    QSet<QString> kept = previous.unknown;
    if (!plan->isSettled()) {
        plan->postpone(sent.items);
        if (!plan->settle()) {
            return;
        }
        plan->noteRemovalsFailed(plan->takeRemovals());
        kept += resendAttributes();
    }
    const qsizetype before = failed.size();
    for (auto files = plan->nextFinalFiles(kept);
         !files.isEmpty() && failed.size() == before && !waiter.mustEnd();
         files = plan->nextFinalFiles(kept)) {
        sendChecksumFiles(files);
    }
}

/// Those of items that stay as they were saved, too. The modules whose attributes could not be stored.
QSet<QString> Upload::resendAttributes()
{
    const QMap<QString, AttributesByKey> live = readLiveAttributes();
    QMap<QString, QSet<QString>> stored;
    for (const auto &[module, identity] : std::as_const(sent.items)) {
        stored[module] << identity;
    }
    QSet<QString> failing;
    for (const QString &module : QSet<QString>(sent.attributes)) {
        sendAttributes(module, attributesOf(module, stored.value(module), live.value(module)), failing);
    }
    session.waitForRequests();
    return failing;
}
