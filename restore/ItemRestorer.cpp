#include "restore/ItemRestorer.h"

#include "commands/Command.h"
#include "commands/Digest.h"
#include "platform/core/Waiter.h"
#include "platform/logger/VYXLogger.h"
#include "repository/RepositorySession.h"
#include "restore/ArchiveRestore.h"
#include "restore/DatabaseRestore.h"
#include "restore/LiveData.h"
#include "restore/Replacement.h"
#include "staging/DatabaseDump.h"

#include <QFile>

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

bool ItemRestorer::restoreDatabase(const PlannedItem &planned)
{
    const QString &dump = planned.source;
    const QString target = planned.item.livePath();
    if (!QFile::exists(dump) || !runShellLine(waiter, DatabaseDump::checkLine(dump)).succeeded()) {
        return keep(QString("Dump '%1' is missing or broken").arg(dump), target);
    }
    const bool partial = DatabaseRestore::isPartial(waiter, dump);
    LiveData live(target, LiveData::Kind::Database);
    if (partial && !live.exists()) {
        logError("Database '%1' does not exist: there is nothing to put the saved rows into", target);
        return false;
    }
    if (!(partial ? live.copyAside(waiter) : live.moveAside()) ||
        !DatabaseRestore::load(waiter, dump, target)) {
        return keep({}, target);
    }
    live.commit(waiter);
    return true;
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
