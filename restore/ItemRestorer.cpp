#include "restore/ItemRestorer.h"

#include "commands/Digest.h"
#include "platform/core/Waiter.h"
#include "platform/logger/LogFields.h"
#include "platform/logger/VYXLogger.h"
#include "repository/RepositorySession.h"
#include "restore/ArchiveRestore.h"
#include "restore/LiveData.h"
#include "restore/Replacement.h"
#include "staging/StagingArea.h"

#include <QFileInfo>

#include <algorithm>

using namespace std::chrono_literals;

namespace {

constexpr qsizetype fewest = 8;
constexpr qsizetype mostFetched = 200;
constexpr qint64 mostFetchedBytes = qint64{32} * 1024 * 1024;

} // namespace

bool ItemRestorer::isAcceptable(const PlannedItem &planned)
{
    const QString target = planned.item.livePath();
    const QString module = planned.item.getModule();
    if (LiveData::belongsToModule(target, module)) {
        return true;
    }
    const LogFields fields(module, planned.item.getPath());
    logError("'%1' is refused: it does not lie below the data of module '%2'", target, module);
    faults.insert(target, "It does not lie below the module's data");
    return false;
}

bool ItemRestorer::restore(const PlannedItem &planned)
{
    const LogFields fields(planned.item.getModule(), planned.item.getPath());
    if (!isAcceptable(planned)) {
        return false;
    }
    return planned.item.getKind() == DatabaseItem ? restoreDatabase(planned) : restoreDirectory(planned);
}

/// The end of an item that could not be put back; nothing is said when the operation is broken off.
bool ItemRestorer::keep(const QString &reason, const PlannedItem &planned)
{
    const QString target = planned.item.livePath();
    const LogFields fields(planned.item.getModule(), planned.item.getPath());
    faults.insert(target, reason);
    if (!waiter.mustEnd()) {
        if (!reason.isEmpty()) {
            logError("%1", reason);
        }
        logError("'%1' could not be restored and stays as it was", target);
    }
    return false;
}

void ItemRestorer::prepareDatabases(const QList<PlannedItem> &own, const QList<PlannedItem> &ahead)
{
    QStringList faults = prepareAll(own + ahead);
    for (qsizetype number = 0; number < own.size(); ++number) {
        if (!faults.at(number).isEmpty() && !ahead.isEmpty()) {
            for (const PlannedItem &other : ahead) {
                databases.erase(other.item.livePath());
            }
            faults[number] = prepareAll({own.at(number)}).first();
        }
        if (!faults.at(number).isEmpty()) {
            keep(faults.at(number), own.at(number));
        }
    }
}

/// What is wrong with each.
QStringList ItemRestorer::prepareAll(const QList<PlannedItem> &all)
{
    std::vector<std::unique_ptr<DatabaseRestore>> made;
    QList<DatabaseRestore *> tried;
    for (const PlannedItem &planned : all) {
        made.push_back(std::make_unique<DatabaseRestore>(planned.source, planned.item.livePath()));
        made.back()->setAttributes(planned.attributes);
        made.back()->setPromised(planned.digest);
        tried << made.back().get();
    }
    QStringList faults = DatabaseRestore::prepareAll(waiter, tried);
    for (size_t number = 0; number < made.size(); ++number) {
        const auto index = static_cast<qsizetype>(number);
        if (faults.at(index).isEmpty()) {
            databases[all.at(index).item.livePath()] = std::move(made[number]);
        }
    }
    return faults;
}

bool ItemRestorer::restoreDatabase(const PlannedItem &planned)
{
    const QString target = planned.item.livePath();
    const auto made = databases.extract(target);
    if (made.empty()) {
        return false;
    }
    const QString fault = made.mapped()->apply(waiter);
    if (!fault.isEmpty()) {
        return keep(fault, planned);
    }
    if (made.mapped()->isWhole()) {
        restoredDatabases << planned;
    }
    return true;
}

/// A change in the very moment of the last write would leave the same time stamp: the modules go on when it
/// has passed.
void ItemRestorer::rememberDatabases(StagingArea &staging)
{
    constexpr int mostLooks = 50;
    for (const PlannedItem &planned : std::exchange(restoredDatabases, {})) {
        int looks = 0;
        while (!staging.rememberRestored(planned.item, planned.digest) && ++looks < mostLooks &&
               waiter.dispatchEventsFor(1ms)) {
        }
    }
}

bool ItemRestorer::restoreDirectory(const PlannedItem &planned)
{
    const QString directory = planned.item.livePath();
    ArchiveRestore archive(planned.source, directory, waiter);
    return archive.restore(planned.digest) || keep(archive.errorText(), planned);
}

/// What is wrong with a file that was fetched beside its live one, which stays until the new content is known
/// to be what was promised.
QString ItemRestorer::faultOf(const Fetched &one)
{
    if (!one.outcome.stored()) {
        return QString("Could not fetch '%1' from the repository").arg(one.planned.entry);
    }
    const QString digest = fileDigest(waiter, one.replacement->path());
    if (digest == one.planned.digest) {
        return {};
    }
    return QString("Entry '%1' is not what was saved: its digest is %2, promised was %3")
        .arg(one.planned.entry, digest, one.planned.digest);
}

/// So many as fill what may be fetched at once, when they are as large as those before.
qsizetype ItemRestorer::batchSize() const
{
    return filesEver == 0
               ? fewest
               : static_cast<qsizetype>(std::clamp<qint64>(
                     mostFetchedBytes / std::max<qint64>(bytesEver / filesEver, 1), fewest, mostFetched));
}

void ItemRestorer::restoreFiles(const QList<PlannedItem> &files, const Told &told)
{
    const Refuse refuse = [&](const PlannedItem &planned, const QString &why) {
        keep(why, planned);
        told(planned, why);
    };
    QList<PlannedItem> acceptable;
    for (const PlannedItem &planned : files) {
        if (isAcceptable(planned)) {
            acceptable << planned;
        } else {
            told(planned, fault(planned));
        }
    }
    for (qsizetype begun = 0; begun < acceptable.size() && !waiter.mustEnd();) {
        const QList<PlannedItem> batch = acceptable.mid(begun, batchSize());
        begun += batch.size();
        const bool last = batch.size() == 1;
        const QList<PlannedItem> missing = fetchBeside(
            batch, last ? refuse : [](const PlannedItem &, const QString &) {});
        putFetchedInPlace(told);
        // The others may have taken the room, and have given that of the old ones free.
        for (const PlannedItem &planned : last ? QList<PlannedItem>() : missing) {
            fetchBeside({planned}, refuse);
            putFetchedInPlace(told);
        }
    }
}

/// Those that are not there then.
QList<PlannedItem> ItemRestorer::fetchBeside(const QList<PlannedItem> &files, const Refuse &refuse)
{
    std::vector<Fetched> all;
    QList<PlannedItem> missing;
    for (const PlannedItem &planned : files) {
        auto replacement = std::make_unique<Replacement>(planned.item.livePath());
        replacement->setAttributes(planned.attributes);
        if (replacement->prepare()) {
            all.push_back({planned, std::move(replacement), {}});
        } else {
            refuse(planned, {});
            missing << planned;
        }
    }
    size_t left = all.size();
    for (Fetched &one : all) {
        session.submit({RepositoryRequest::Get, one.planned.entry, one.replacement->path()},
                       [&one, &left](const RequestOutcome &outcome) {
                           one.outcome = outcome;
                           --left;
                       });
    }
    session.waitFor([&left] { return left == 0; });
    for (Fetched &one : all) {
        const QString fault = faultOf(one);
        if (fault.isEmpty()) {
            bytesEver += QFileInfo(one.replacement->path()).size();
            ++filesEver;
            fetched.emplace_back(one.planned, std::move(one.replacement));
        } else {
            refuse(one.planned, fault);
            missing << one.planned;
        }
    }
    // Each leaves the directories empty that were made for it, and those before may hold its own.
    while (!all.empty()) {
        all.pop_back();
    }
    return missing;
}

void ItemRestorer::putFetchedInPlace(const Told &told)
{
    if (fetched.empty()) {
        return;
    }
    QList<Replacement *> all;
    for (const auto &file : fetched) {
        all << file.second.get();
    }
    const QList<bool> replaced = Replacement::replaceAll(waiter, all);
    for (qsizetype number = 0; number < all.size(); ++number) {
        const PlannedItem &planned = fetched[number].first;
        if (replaced.at(number)) {
            told(planned, std::nullopt);
        } else {
            keep({}, planned);
            told(planned, QString());
        }
    }
    fetched.clear();
}
