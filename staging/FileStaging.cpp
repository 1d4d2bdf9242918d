#include "staging/FileStaging.h"

#include "catalogue/ItemNames.h"
#include "commands/Digest.h"
#include "platform/logger/LogFields.h"
#include "platform/logger/VYXLogger.h"
#include "staging/DirectoryArchive.h"
#include "staging/RememberedDigests.h"
#include "staging/StagingError.h"

#include <QFile>
#include <QFileInfo>

#include <utility>

namespace {

QString priorityOf(const RestorableFile &item)
{
    return priorityName(item.getPriority());
}

} // namespace

FileStaging::FileStaging(QString moduleName, const Artefacts &artefacts, RememberedDigests &remembered,
                         ChecksumLines &lines, const Waiter &waiter)
    : module(std::move(moduleName)), data(module), artefacts(artefacts), remembered(remembered), lines(lines),
      waiter(waiter)
{
}

void FileStaging::stage(const RestorableFile &item)
{
    const LogFields fields(module, item.getPath());
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
    lines.append(ChecksumLine::file(path, digestOf(data.openRegular(path).descriptor, path), item.isZipped(),
                                    priorityOf(item)));
}

/// Empty when the digest cannot be taken, as of a descriptor that is not open.
QString FileStaging::digestOf(const Descriptor &file, const QString &path)
{
    const auto state = [&] { return contentState(file.status()); };
    const ContentState before = state();
    const QString key = module + "/" + path;
    QString digest = remembered.find(key, before);
    if (digest.isEmpty()) {
        digest = remembered.enter(key, before, fileDigest(waiter, file), state);
    }
    if (digest.isEmpty()) {
        reportStagingError(QString("the digest of '%1'").arg(data.pathOf(path)));
    } else {
        logDebug("md5sum= %1", digest);
    }
    return digest;
}

void FileStaging::stageZippedDirectory(const RestorableFile &item)
{
    logDebug("Saving directory (zipped) '%1' of module '%2'", item.getPath(), module);
    const SavedItem saved(DirectoryItem, module, item.getPath(), priorityOf(item));
    const QString digest = archive(saved);
    if (digest.isEmpty()) {
        reportStagingError(QString("the archive of '%1'").arg(data.pathOf(item.getPath())));
        QFile::remove(saved.stagedPath());
    }
    lines.append(ChecksumLine::directory(saved.key(), digest, priorityOf(item)));
}

/// The digest of the archive, empty when there is none. What is left out is named by warnings.
QString FileStaging::archive(const SavedItem &item)
{
    const QString path = item.getPath();
    const Beneath::Opened directory = data.openDirectory(path);
    if (!directory.descriptor.isOpen()) {
        return {};
    }
    if (QFileInfo(data.pathOf(path)).isSymLink()) {
        logWarning("Directory '%1' of module '%2' is left out: one that is saved zipped must not be a link",
                   path, module);
        return {};
    }
    const DirectoryArchive made = archiveIfWanted(item, directory.descriptor);
    if (!made.bounded) {
        logWarning(
            "Directory '%1' of module '%2' is left out: it has too many entries or links that lead out, or "
            "one of these has a name that cannot be listed",
            path, module);
        return {};
    }
    for (const QByteArray &link : made.outward) {
        logWarning("Link '%1' in directory '%2' of module '%3' leads out and will not be restored",
                   QFile::decodeName(link), path, module);
    }
    for (const QByteArray &other : made.others) {
        logWarning("'%1' in directory '%2' of module '%3' is no file, directory or link and is left out",
                   QFile::decodeName(other), path, module);
    }
    return made.digest;
}

/// An archive that is not what was saved is written in a walk of its own, which has the digest then.
DirectoryArchive FileStaging::archiveIfWanted(const SavedItem &item, const Descriptor &directory)
{
    const QString path = data.pathOf(item.getPath());
    const QString key = module + "/" + item.getPath() + "/";
    const auto look = [&] { return lookIntoDirectory(waiter, directory, path); };
    DirectoryArchive seen = look();
    ChecksumLine line = ChecksumLine::directory(item.key(), {}, item.getPriority());
    const bool anyway = artefacts.isMadeAnyway(module, line.identity());
    line.setDigest(seen.bounded ? remembered.find(key, seen.state) : QString());
    seen.digest = line.digest();
    if (seen.bounded && (seen.digest.isEmpty() || anyway)) {
        const ContentState before = seen.state;
        seen = archiveDirectory(waiter, directory, path, anyway ? item.stagedPath() : QString());
        line.setDigest(remembered.enter(key, before, seen.digest, [&] { return look().state; }));
    }
    const bool differs = !anyway && !seen.digest.isEmpty() && artefacts.isMade(module, line);
    return differs ? archiveDirectory(waiter, directory, path, item.stagedPath()) : seen;
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
    if (!ItemNames::fitsLine(name)) {
        logWarning("'%1' in directory '%2' of module '%3' is left out: its name has a TAB, a line break or "
                   "bytes that are no UTF-8",
                   QString::fromLatin1(name.toPercentEncoding()), item.getPath(), module);
        return;
    }
    lines.append(ChecksumLine::file(path, digestOf(file.descriptor, path), false, priorityOf(item)));
}
