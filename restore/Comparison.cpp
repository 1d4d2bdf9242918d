#include "commands/Command.h"
#include "commands/ShellText.h"
#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"
#include "service/VYXSaveRestore.h"

void VYXSaveRestore::cleanRestoreDirectory()
{
    createWorkingDirectories();
    const QString command = QString("rm -rf %1/*").arg(ShellText::quoted(DevicePaths::restoreDirectory()));
    logDebug("Cleaning restore directory: %1", command);
    runShellLine(waiter, command);
}

ChecksumEntries VYXSaveRestore::compareChecksumFiles(const QString &localPath, const QString &repositoryPath,
                                                     bool forSave)
{
    const auto local = readChecksumFile(localPath);
    const auto saved = readChecksumFile(repositoryPath);
    if (!local) {
        if (forSave) {
            logError("Could not open local checksum file (%1)", localPath);
            return {};
        }
        logDebug("Could not open local checksum file (%1): restore all files", localPath);
    } else if (!saved) {
        logError("Could not open repository checksum file (%1): all data are new!", repositoryPath);
    }
    return compareChecksumLines(local.value_or(ChecksumLines()), saved.value_or(ChecksumLines()), forSave);
}
