#include "staging/FileStaging.h"

#include "catalogue/ItemNames.h"
#include "commands/Command.h"
#include "commands/Digest.h"
#include "commands/ShellText.h"
#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"
#include "staging/StagingError.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <utility>

namespace {

/// GNU tar ends with 1 when a file changed or went while it was read; the archive is whole all the same.
constexpr int tarFileChanged = 1;

const QString compressedSuffix = ".gz";

QString priorityOf(const RestorableFile &item)
{
    return priorityName(item.getPriority());
}

bool fitsChecksumLine(const QString &name)
{
    return !name.contains('\t') && !name.contains('\n') && !name.contains('\r');
}

} // namespace

FileStaging::FileStaging(QString moduleName, ChecksumLines &lines, Waiter &waiter)
    : module(std::move(moduleName)), dataDirectory(DevicePaths::moduleData(module)), lines(lines),
      waiter(waiter)
{
}

void FileStaging::stage(const RestorableFile &item)
{
    if (item.getKind() == FileItem) {
        stageFile(item);
    } else if (item.getKind() == DirectoryItem && item.isZipped()) {
        stageZippedDirectory(item);
    } else if (item.getKind() == DirectoryItem) {
        stageDirectory(item);
    }
}

void FileStaging::stageFile(const RestorableFile &item)
{
    logDebug("Saving file '%1' of module '%2'", item.getPath(), module);
    const QString path = dataDirectory + "/" + item.getPath();
    const QString digest = fileDigest(waiter, path);
    if (digest.isEmpty()) {
        reportStagingError(digestCommandLine(path));
    } else {
        logDebug("md5sum= %1", digest);
    }
    lines.append(ChecksumLine::file(item.getPath(), digest, item.isZipped(), priorityOf(item)));
}

bool FileStaging::archiveDirectory(const QString &source, const QString &archive)
{
    const QStringList arguments = {"-cf", archive, source};
    const CommandResult result = runCommand(waiter, "tar", arguments);
    if (result.finished && result.exitCode <= tarFileChanged) {
        return true;
    }
    reportStagingError(ShellText::commandLine("tar", arguments));
    QFile::remove(archive);
    return false;
}

void FileStaging::stageZippedDirectory(const RestorableFile &item)
{
    logDebug("Saving directory (zipped) '%1' of module '%2'", item.getPath(), module);
    const SavedItem saved(DirectoryItem, module, item.getPath(), priorityOf(item));
    const QString archive = saved.stagedPath().chopped(compressedSuffix.size());
    QString digest;
    if (archiveDirectory(dataDirectory + "/" + item.getPath(), archive)) {
        digest = fileDigest(waiter, archive);
        if (digest.isEmpty()) {
            reportStagingError(digestCommandLine(archive));
        }
        if (!compressArchive(archive, !digest.isEmpty())) {
            digest.clear();
        }
    }
    lines.append(ChecksumLine::directory(saved.key(), digest, priorityOf(item)));
}

/// Replace the archive by its compressed form; an archive that is not wanted or cannot be compressed goes.
bool FileStaging::compressArchive(const QString &archive, bool wanted)
{
    if (wanted && runCommand(waiter, "gzip", {archive}).succeeded()) {
        return true;
    }
    if (wanted) {
        reportStagingError(ShellText::commandLine("gzip", {archive}));
    }
    QFile::remove(archive);
    QFile::remove(archive + ".gz");
    return false;
}

void FileStaging::stageDirectory(const RestorableFile &item)
{
    logDebug("Saving directory (unzipped) '%1' of module '%2'", item.getPath(), module);
    const QDir directory(dataDirectory + "/" + item.getPath());
    if (!directory.exists()) {
        // Gone since the description was read: like an item that was missing then.
        lines.append(ChecksumLine::file(item.getPath(), {}, false, priorityOf(item)));
        return;
    }
    const QStringList entries =
        directory.entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot, QDir::Unsorted);
    logDebug("files in %1: %2", directory.absolutePath(), entries.join(" - "));
    for (const QString &entry : entries) {
        stageDirectoryEntry(item, directory.absolutePath(), entry);
    }
}

void FileStaging::stageDirectoryEntry(const RestorableFile &item, const QString &directory,
                                      const QString &entry)
{
    const QString path = directory + "/" + entry;
    if (!QFileInfo(path).isFile() || !fitsChecksumLine(entry)) {
        reportStagingError(digestCommandLine(path));
        return;
    }
    const QString digest = fileDigest(waiter, path);
    if (digest.isEmpty()) {
        reportStagingError(digestCommandLine(path));
    } else {
        logDebug("md5sum= %1", digest);
    }
    lines.append(ChecksumLine::file(item.getPath() + "/" + entry, digest, false, priorityOf(item)));
}
