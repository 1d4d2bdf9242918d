#include "staging/FileStaging.h"

#include "catalogue/ItemNames.h"
#include "commands/Command.h"
#include "commands/Digest.h"
#include "commands/ShellText.h"
#include "platform/core/Waiter.h"
#include "platform/logger/VYXLogger.h"
#include "staging/OutwardLinks.h"
#include "staging/StagingError.h"

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

/// True for a name that a line can hold and that comes back as the same bytes.
bool fitsChecksumLine(const QByteArray &name)
{
    const bool breaksLine = name.contains('\t') || name.contains('\n') || name.contains('\r');
    return !breaksLine && QFile::encodeName(QFile::decodeName(name)) == name;
}

} // namespace

FileStaging::FileStaging(QString moduleName, ChecksumLines &lines, Waiter &waiter)
    : module(std::move(moduleName)), data(module), lines(lines), waiter(waiter)
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
    const QString path = item.getPath();
    lines.append(ChecksumLine::file(path, digestOf(data.openRegular(path).descriptor, data.pathOf(path)),
                                    item.isZipped(), priorityOf(item)));
}

/// Empty when the digest cannot be taken, as of a descriptor that is not open.
QString FileStaging::digestOf(const Descriptor &file, const QString &shown)
{
    QString digest = fileDigest(waiter, file);
    if (digest.isEmpty()) {
        reportStagingError(QString("the digest of '%1'").arg(shown));
    } else {
        logDebug("md5sum= %1", digest);
    }
    return digest;
}

/// The options that keep links out of the archive that lead out of the directory; each is named by a warning.
/// Nothing when the directory has to be left out as a whole.
std::optional<QStringList> FileStaging::exclusions(const QString &path, const QString &list)
{
    const Beneath::Opened directory = data.openDirectory(path);
    if (!directory.descriptor.isOpen()) {
        return std::nullopt;
    }
    if (QFileInfo(data.pathOf(path)).isSymLink()) {
        logWarning("Directory '%1' of module '%2' is left out: one that is saved zipped must not be a link",
                   path, module);
        return std::nullopt;
    }
    OutwardLinks outward;
    waiter.runBeside([&] { outward = outwardLinks(directory.descriptor, data.pathOf(path)); });
    QByteArray text;
    for (const QByteArray &link : std::as_const(outward.links)) {
        logWarning("Link '%1' in directory '%2' of module '%3' leads out and will not be restored",
                   QFile::decodeName(link), path, module);
        text += QFile::encodeName(data.pathOf(path)) + "/" + link + "\n";
    }
    if (!outward.complete) {
        logWarning(
            "Directory '%1' of module '%2' is left out: it has too many entries or links that lead out, or "
            "one of these has a name that cannot be listed",
            path, module);
        return std::nullopt;
    }
    QFile file(list);
    const bool written = file.open(QIODevice::WriteOnly) && file.write(text) == text.size() && file.flush();
    return written ? std::optional(QStringList{"--no-wildcards", "--anchored", "--exclude-from=" + list})
                   : std::nullopt;
}

bool FileStaging::archiveDirectory(const QString &path, const QString &archive)
{
    const QString list = archive + ".excluded";
    const auto excluded = exclusions(path, list);
    const QStringList arguments =
        QStringList{"-cf", archive} + excluded.value_or(QStringList()) + QStringList{data.pathOf(path)};
    const CommandResult result = excluded ? runCommand(waiter, "tar", arguments) : CommandResult();
    QFile::remove(list);
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
    if (archiveDirectory(item.getPath(), archive)) {
        digest = fileDigest(waiter, archive);
        if (digest.isEmpty()) {
            reportStagingError(QString("the digest of '%1'").arg(archive));
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
    const Beneath::Opened directory = data.openDirectory(item.getPath());
    const auto names = namesIn(directory.descriptor);
    if (!names) {
        // Not known what is in it: a line that keeps what was saved of it.
        reportStagingError(QString("the list of '%1'").arg(data.pathOf(item.getPath())));
        lines.append(ChecksumLine::file(item.getPath(), {}, false, priorityOf(item)));
        return;
    }
    logDebug("files in %1: %2", data.pathOf(item.getPath()), QFile::decodeName(names->join(" - ")));
    for (const QByteArray &name : *names) {
        if (!name.startsWith('.')) {
            stageDirectoryEntry(item, name);
        }
    }
}

/// What is no file has no line; a link that leads out has one, which keeps what was saved under its name.
void FileStaging::stageDirectoryEntry(const RestorableFile &item, const QByteArray &name)
{
    const QString path = item.getPath() + "/" + QFile::decodeName(name);
    const Beneath::Opened file = data.openRegular(QFile::encodeName(item.getPath()) + "/" + name);
    if (file.state == Beneath::State::WrongKind || file.state == Beneath::State::Missing) {
        reportStagingError(QString("the digest of '%1'").arg(data.pathOf(path)));
        return;
    }
    if (!fitsChecksumLine(name)) {
        logWarning("'%1' in directory '%2' of module '%3' is left out: its name has a TAB, a line break or "
                   "bytes that are no UTF-8",
                   QString::fromLatin1(name.toPercentEncoding()), item.getPath(), module);
        return;
    }
    lines.append(
        ChecksumLine::file(path, digestOf(file.descriptor, data.pathOf(path)), false, priorityOf(item)));
}
