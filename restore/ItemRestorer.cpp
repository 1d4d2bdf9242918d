#include "restore/ItemRestorer.h"

#include "commands/Digest.h"
#include "platform/core/Waiter.h"
#include "platform/logger/VYXLogger.h"
#include "repository/RepositorySession.h"
#include "restore/ArchiveRestore.h"
#include "restore/LiveData.h"
#include "restore/Replacement.h"

namespace {

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
    switch (planned.item.getKind()) {
    case DatabaseItem:
        return restoreDatabase(planned);
    case DirectoryItem:
        return restoreDirectory(planned);
    case FileItem:
        break;
    }
    return restoreFile(planned);
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

void ItemRestorer::prepareDatabase(const PlannedItem &planned)
{
    const QString target = planned.item.livePath();
    if (!LiveData::belongsToModule(target, planned.item.getModule())) {
        return; // `restore` tells
    }
    auto made = std::make_unique<DatabaseRestore>(planned.source, target);
    made->setAttributes(planned.attributes);
    if (const QString fault = made->prepare(waiter); !fault.isEmpty()) {
        keep(fault, target);
        return;
    }
    databases[target] = std::move(made);
}

bool ItemRestorer::restoreDatabase(const PlannedItem &planned)
{
    const QString target = planned.item.livePath();
    const auto made = databases.extract(target);
    if (made.empty()) {
        return false;
    }
    const QString fault = made.mapped()->apply(waiter);
    return fault.isEmpty() || keep(fault, target);
}

bool ItemRestorer::restoreDirectory(const PlannedItem &planned)
{
    const QString directory = planned.item.livePath();
    ArchiveRestore archive(planned.source, directory, waiter);
    return archive.restore(planned.digest) || keep(archive.errorText(), directory);
}

/// The file is fetched beside its live one, which stays until the new content is known to be what was
/// promised.
bool ItemRestorer::restoreFile(const PlannedItem &planned)
{
    const QString target = planned.item.livePath();
    Replacement replacement(target);
    replacement.setAttributes(planned.attributes);
    if (!replacement.prepare()) {
        return keep({}, target);
    }
    if (!session.getFileAndWait(planned.source, replacement.path()).stored()) {
        return keep(QString("Could not fetch '%1' from the repository").arg(planned.source), target);
    }
    const QString digest = fileDigest(waiter, replacement.path());
    if (digest != planned.digest) {
        return keep(QString("Entry '%1' is not what was saved: its digest is %2, promised was %3")
                        .arg(planned.source, digest, planned.digest),
                    target);
    }
    return replacement.replace(waiter) || keep({}, target);
}
