#include "commands/Command.h"
#include "commands/ShellText.h"
#include "platform/logger/VYXLogger.h"
#include "restore/ArchiveListing.h"
#include "restore/DatabaseRestore.h"
#include "restore/DownloadList.h"
#include "restore/LiveData.h"
#include "service/VYXSaveRestore.h"
#include "staging/DatabaseDump.h"

#include <QFile>
#include <QFileInfo>

namespace {

/// True when the archive can be read and holds nothing but the directory.
bool isArchiveOf(Waiter &waiter, const QString &archive, const QString &directory)
{
    const CommandResult result = runCommand(waiter, "tar", archiveListingArguments(archive));
    const auto members = parseArchiveListing(result.output);
    if (!result.succeeded() || !members || members->isEmpty()) {
        logError("Archive '%1' is missing or broken", archive);
        return false;
    }
    if (!staysInside(*members, directory)) {
        logError("Archive '%1' is refused: it leads out of '%2'", archive, directory);
        return false;
    }
    return true;
}

bool isAcceptable(const QString &target, const QString &module)
{
    if (LiveData::belongsToModule(target, module)) {
        return true;
    }
    logError("'%1' is refused: it does not lie below the data of module '%2'", target, module);
    return false;
}

bool keep(const QString &target)
{
    logError("'%1' could not be restored and stays as it was", target);
    return false;
}

} // namespace

bool VYXSaveRestore::restoreDatabase(const PlannedLine &planned)
{
    const QString &dump = planned.line.source;
    const QString &target = planned.line.target;
    if (!isAcceptable(target, planned.module)) {
        return false;
    }
    if (!QFile::exists(dump) || !runShellLine(waiter, DatabaseDump::checkLine(dump)).succeeded()) {
        logError("Dump '%1' is missing or broken", dump);
        return keep(target);
    }
    const bool partial = DatabaseRestore::isPartial(waiter, dump);
    LiveData live(target, LiveData::Kind::Database);
    if (partial && !live.exists()) {
        logError("Database '%1' does not exist: there is nothing to put the saved rows into", target);
        return false;
    }
    if (!(partial ? live.copyAside(waiter) : live.moveAside()) ||
        !DatabaseRestore::load(waiter, dump, target)) {
        return keep(target);
    }
    live.commit(waiter);
    return true;
}

bool VYXSaveRestore::restoreDirectory(const PlannedLine &planned)
{
    const QString &archive = planned.line.source;
    const QString directory = plannedDirectories.value(archive);
    if (!isAcceptable(directory, planned.module)) {
        return false;
    }
    if (!isArchiveOf(waiter, archive, directory)) {
        return keep(directory);
    }
    LiveData live(directory, LiveData::Kind::Directory);
    const QStringList arguments = {"-C", "/", "-xzf", archive};
    logDebug("%1", ShellText::commandLine("tar", arguments));
    if (!live.copyAside(waiter) || !runCommand(waiter, "tar", arguments).succeeded() ||
        !QFileInfo(directory).isDir()) {
        return keep(directory);
    }
    live.commit(waiter);
    return true;
}

bool VYXSaveRestore::restoreFile(const PlannedLine &planned)
{
    const QString &target = planned.line.target;
    if (!isAcceptable(target, planned.module)) {
        return false;
    }
    LiveData live(target, LiveData::Kind::File);
    if (!live.moveAside()) {
        return keep(target);
    }
    if (!getFileAndWait(planned.line.source, target, true) || !QFileInfo(target).isFile()) {
        logError("Could not fetch '%1' from the repository", planned.line.source);
        return keep(target);
    }
    live.commit(waiter);
    return true;
}
