#include "restore/ItemRestorer.h"

#include "commands/Digest.h"
#include "platform/core/Waiter.h"
#include "platform/logger/VYXLogger.h"
#include "repository/RepositorySession.h"
#include "restore/ArchiveRestore.h"
#include "restore/LiveData.h"
#include "restore/Replacement.h"
#include "staging/StagingArea.h"

#include <QFileInfo>

using namespace std::chrono_literals;

namespace {

constexpr size_t mostFetched = 200;
constexpr qint64 mostFetchedBytes = qint64{32} * 1024 * 1024;

bool isAcceptable(const QString &target, const QString &module)
{
    if (LiveData::belongsToModule(target, module)) {
        return true;
    }
    logError("'%1' is refused: it does not lie below the data of module '%2'", target, module);
    return false;
}

} // namespace

bool ItemRestorer::restore(const PlannedItem &planned)
{
    if (!isAcceptable(planned.item.livePath(), planned.item.getModule())) {
        return false;
    }
    return planned.item.getKind() == DatabaseItem ? restoreDatabase(planned) : restoreDirectory(planned);
}

/// The end of an item that could not be put back; nothing is said when the operation is broken off.
bool ItemRestorer::keep(const QString &reason, const QString &target)
{
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
            keep(faults.at(number), own.at(number).item.livePath());
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
        return keep(fault, target);
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
    return archive.restore(planned.digest) || keep(archive.errorText(), directory);
}

/// The file is fetched beside its live one, which stays until the new content is known to be what was
/// promised. Nothing, or what is wrong; an empty text when there is nothing to say.
std::optional<QString> ItemRestorer::fetchBeside(const PlannedItem &planned, Replacement &replacement)
{
    replacement.setAttributes(planned.attributes);
    if (!replacement.prepare()) {
        return QString();
    }
    if (!session.getFileAndWait(planned.source, replacement.path()).stored()) {
        return QString("Could not fetch '%1' from the repository").arg(planned.source);
    }
    const QString digest = fileDigest(waiter, replacement.path());
    if (digest != planned.digest) {
        return QString("Entry '%1' is not what was saved: its digest is %2, promised was %3")
            .arg(planned.source, digest, planned.digest);
    }
    return std::nullopt;
}

void ItemRestorer::restoreFiles(const QList<PlannedItem> &files,
                                const std::function<void(const PlannedItem &)> &failed)
{
    qint64 size = 0;
    for (const PlannedItem &planned : files) {
        const QString target = planned.item.livePath();
        if (!isAcceptable(target, planned.item.getModule())) {
            failed(planned);
            continue;
        }
        auto replacement = std::make_unique<Replacement>(target);
        auto fault = fetchBeside(planned, *replacement);
        if (fault && !fetched.empty() && !waiter.mustEnd()) {
            // Those that wait may have taken the room, and give that of the old ones free.
            putFetchedInPlace(failed);
            size = 0;
            fault = fetchBeside(planned, *replacement);
        }
        if (fault) {
            keep(*fault, target);
            failed(planned);
            continue;
        }
        size += QFileInfo(replacement->path()).size();
        fetched.emplace_back(planned, std::move(replacement));
        if (size >= mostFetchedBytes || fetched.size() >= mostFetched) {
            putFetchedInPlace(failed);
            size = 0;
        }
    }
    putFetchedInPlace(failed);
}

void ItemRestorer::putFetchedInPlace(const std::function<void(const PlannedItem &)> &failed)
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
        if (!replaced.at(number)) {
            keep({}, planned.item.livePath());
            failed(planned);
        }
    }
    fetched.clear();
}
