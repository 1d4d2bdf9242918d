#include "catalogue/ItemNames.h"
#include "catalogue/SavedEntries.h"
#include "catalogue/SavedItem.h"
#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"
#include "save/UploadPlan.h"
#include "service/VYXSaveRestore.h"

#include <QDir>
#include <QFile>
#include <QHash>

using namespace std::chrono_literals;

namespace {

constexpr auto uploadInactivityLimit = 60s;

QStringList stagedFiles(const QString &pattern)
{
    return QDir(DevicePaths::stagingRoot()).entryList({pattern}, QDir::Files, QDir::Unsorted);
}

QString moduleOf(const QString &fileName)
{
    return fileName.section('.', 0, 0);
}

QString temporaryDirectory(const QString &name)
{
    QDir(DevicePaths::restoreDirectory()).mkpath(name);
    return DevicePaths::fetched(name);
}

} // namespace

/// The state of one upload.
struct VYXSaveRestore::UploadRun
{
    QStringList modules;                     ///< modules with a staged checksum file and items
    QStringList previouslyListed;            ///< modules of the repository's modules list
    LinesByModule previousLines;             ///< as the repository has them
    LinesByModule lines;                     ///< as the repository is to have them
    QMap<QString, ChecksumEntries> entries;  ///< outcome of each module's comparison
    QMap<QString, QSet<QString>> takenOver;  ///< keys whose digest comes from the repository
    QMap<QString, QSet<QString>> failedKeys; ///< items whose send was refused
    QStringList heldBack;                    ///< modules whose whole checksum file is still to be sent
    std::optional<SavedEntries> current;
    std::optional<SavedEntries> previous;
    QString failure; ///< text of the last failure, empty when there is none
    int generation = 0;
    bool broken = false; ///< transfers are missing, and it is not known which
};

/// The repository's checksum file of a module must never promise what the repository does not hold, wherever
/// an upload is cut off. So a module with changes first sends the lines of its unchanged items alone, and the
/// whole file when everything else has arrived.
void VYXSaveRestore::postOnRepository()
{
    UploadRun run;
    run.generation = repositoryGeneration;
    fetchPreviousList(run);
    requestFinished = false;
    pendingOperations = 0;
    repository->resetErrorStatus();
    sendVersionFiles(run);
    fetchPreviousState(run);
    completeChecksumFiles(run);
    sendHeldChecksumFiles(run);
    sendArtefacts(run);
    sendPlainFiles(run);
    removeDeletedFiles(run);
    waitForSends(run);
    sendFinalChecksumFiles(run);
    reportUpload(run);
}

bool VYXSaveRestore::sendCounted(UploadRun &run, const QString &path, const QString &prefix)
{
    if (run.generation != repositoryGeneration) {
        run.failure = "The repository was changed";
        return false;
    }
    const int before = pendingOperations;
    ++pendingOperations;
    if (repository->sendFileToRepository(path, prefix)) {
        return true;
    }
    if (pendingOperations > before) {
        --pendingOperations; // refused: no completion will follow
    }
    run.failure = QString("'%1' could not be sent").arg(path);
    return false;
}

void VYXSaveRestore::fetchPreviousList(UploadRun &run)
{
    const QString path = DevicePaths::fetched(ItemNames::modulesListName());
    getFileAndWait(ItemNames::modulesListName(), path, true);
    QFile file(path);
    if (file.open(QIODevice::ReadOnly)) {
        run.previouslyListed = QString::fromUtf8(file.readAll()).split('\n', Qt::SkipEmptyParts);
    }
}

void VYXSaveRestore::sendVersionFiles(UploadRun &run)
{
    QFile list(DevicePaths::staged(ItemNames::modulesListName()));
    if (!list.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        run.failure = QString("'%1' could not be written").arg(list.fileName());
    }
    logDebug("Send version files to repository");
    for (const QString &file : stagedFiles("*.version")) {
        sendCounted(run, DevicePaths::staged(file), {});
        list.write(moduleOf(file).toUtf8() + "\n");
    }
    list.close();
    logDebug("Send modules list file to repository");
    sendCounted(run, DevicePaths::staged(ItemNames::modulesListName()), {});
    logDebug("Done: send modules list file to repository");
}

void VYXSaveRestore::fetchPreviousState(UploadRun &run)
{
    for (const RestorableObject &object : knownModules.objects()) {
        if (!object.hasItems()) {
            continue;
        }
        const QString module = object.getName();
        const QString path = DevicePaths::fetched(ItemNames::checksumFileName(module));
        getFileAndWait(ItemNames::checksumFileName(module), path, true);
        auto lines = readChecksumFile(path);
        if (!lines) {
            continue;
        }
        if (!run.previouslyListed.contains(module)) {
            // While the module was not on the list, others may have used the names of its plain files.
            lines->removeIf([](const ChecksumLine &line) { return line.isPlainFile(); });
            writeChecksumFile(path, *lines);
        }
        run.previousLines.insert(module, *lines);
    }
    // A failure up to here is shown at the end; it says nothing about the data that are sent from now on.
    const QString fetchError = repository->getErrorString();
    if (repository->getErrorStatus() == RequestFailed) {
        run.failure = fetchError;
    }
}

void VYXSaveRestore::completeChecksumFiles(UploadRun &run)
{
    const QSet<QString> savedPriorities = priorities.names();
    LinesByModule all = run.previousLines;
    for (const QString &file : stagedFiles("*.cksum")) {
        const QString module = file.chopped(QString(".cksum").size());
        const RestorableObject *object = knownModules.findObject(module);
        const auto stagedLines = readChecksumFile(DevicePaths::staged(file));
        if (object == nullptr || !object->hasItems() || !stagedLines) {
            continue;
        }
        const CompletedLines completed =
            completeLines(module, *stagedLines, run.previousLines.value(module), savedPriorities);
        for (const ChecksumLine &line : *stagedLines) {
            if (line.digest().isEmpty()) {
                logWarning("'%1' of module '%2' cannot be read: what was saved of it before stays",
                           line.key(), module);
            }
        }
        run.modules << module;
        run.takenOver.insert(module, completed.takenOver);
        run.lines.insert(module, completed.lines);
        all.insert(module, completed.lines);
    }
    run.current.emplace(all);
    run.previous.emplace(run.previousLines);
    for (const QString &module : std::as_const(run.modules)) {
        compareModule(run, module);
    }
}

void VYXSaveRestore::compareModule(UploadRun &run, const QString &module)
{
    const QString name = ItemNames::checksumFileName(module);
    const ChecksumLines &lines = run.lines[module];
    if (!writeChecksumFile(DevicePaths::staged(name), lines)) {
        run.failure = QString("'%1' could not be written").arg(DevicePaths::staged(name));
    }
    ChecksumEntries entries =
        compareChecksumFiles(DevicePaths::staged(name), DevicePaths::fetched(name), true);
    markNewKeys(entries, lines);
    markRenamedKeys(module, entries, *run.current, *run.previous);
    run.entries.insert(module, entries);
}

void VYXSaveRestore::sendHeldChecksumFiles(UploadRun &run)
{
    logDebug("Send cksum files to repository");
    for (const QString &module : std::as_const(run.modules)) {
        const QString name = ItemNames::checksumFileName(module);
        const ChecksumLines unchanged = unchangedLines(run.lines[module], run.entries[module]);
        if (unchanged == run.lines[module]) {
            sendCounted(run, DevicePaths::staged(name), {});
            continue;
        }
        const QString held = temporaryDirectory("held") + "/" + name;
        if (!writeChecksumFile(held, unchanged)) {
            run.failure = QString("'%1' could not be written").arg(held);
        }
        sendCounted(run, held, {});
        run.heldBack << module;
    }
    logDebug("Done: send cksum files to repository");
}

void VYXSaveRestore::sendArtefacts(UploadRun &run)
{
    logDebug("Send databases and gzipped dirs to repository");
    const QStringList directories =
        QDir(DevicePaths::stagingRoot()).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Unsorted);
    for (const QString &module : directories) {
        const QDir directory(DevicePaths::staged(module));
        QHash<QString, QString> keyOfName;
        for (const ChecksumLine &line : run.lines.value(module)) {
            if (const auto item = SavedItem::parse(module, line)) {
                keyOfName.insert(item->artefact(), line.key());
            }
        }
        for (const QString &file : directory.entryList(QDir::Files | QDir::NoDotAndDotDot, QDir::Unsorted)) {
            logDebug("will upload %1", file);
            const QString key = keyOfName.value(file);
            const ChecksumStatus status = run.entries.value(module).value(key).status;
            if (status == Same) {
                logDebug("Same file: %1", key);
            }
            if (status != New && status != Updated) {
                continue;
            }
            logDebug(status == New ? "New file: %1" : "Update file: %1", key);
            if (!sendCounted(run, directory.absoluteFilePath(file), {})) {
                run.failedKeys[module] << key;
            }
        }
    }
    logDebug("Done: send databases and gzipped dirs to repository");
}

void VYXSaveRestore::sendPlainFiles(UploadRun &run)
{
    logDebug("Send remaining files");
    for (const QString &module : std::as_const(run.modules)) {
        for (const ChecksumLine &line : std::as_const(run.lines[module])) {
            if (line.isPlainFile()) {
                sendPlainFile(run, module, line);
            }
        }
    }
    logDebug("Done: send remaining files");
}

void VYXSaveRestore::sendPlainFile(UploadRun &run, const QString &module, const ChecksumLine &line)
{
    const ChecksumStatus status = run.entries[module].value(line.key()).status;
    if (status == Same) {
        logDebug("Same file: %1", line.key());
    }
    if (status != New && status != Updated) {
        return;
    }
    const QString source = plainFileSource(run, module, line);
    const QString prefix = run.current->entry(module, line).prefix;
    logDebug(status == New ? "New file: %1 (prefix: %2)" : "Update file: %1 (prefix: %2)", source, prefix);
    if (!sendCounted(run, source, prefix)) {
        run.failedKeys[module] << line.key();
    }
}

/// The live file; or, when its line describes what the repository holds rather than the live file and only
/// the entry's name changes, the entry itself, fetched for the purpose.
QString VYXSaveRestore::plainFileSource(UploadRun &run, const QString &module, const ChecksumLine &line)
{
    if (!run.takenOver[module].contains(line.key())) {
        return DevicePaths::moduleData(module) + "/" + line.key();
    }
    const QString directory = temporaryDirectory("moved/" + module + "/" + line.key().section('/', 0, -2));
    QString path = directory + "/" + line.key().section('/', -1);
    getFileAndWait(run.previous->entry(module, line).text(), path, true);
    return path;
}

void VYXSaveRestore::removeDeletedFiles(UploadRun &run)
{
    logDebug("Remove deleted files");
    for (const EntryRemoval &removal : removals(*run.current, *run.previous)) {
        if (run.generation != repositoryGeneration) {
            break;
        }
        logDebug("Remove file: %1", removal.key);
        if (!repository->removeFileFromRepository(removal.entry.name, removal.entry.prefix)) {
            logError("Could not remove '%1' from the repository", removal.entry.text());
        }
    }
    logDebug("Done: remove deleted files");
}

void VYXSaveRestore::waitForSends(UploadRun &run)
{
    const auto finished = [&] {
        return pendingOperations <= 0 || run.generation != repositoryGeneration ||
               !repository->hasPendingRequests();
    };
    const auto progress = [this] {
        return repository->transferProgress() + static_cast<quint64>(pendingOperations);
    };
    const WaitOutcome outcome = waiter.waitUntil(finished, uploadInactivityLimit, progress);
    if (outcome == WaitOutcome::Ended) {
        run.failure = "The service is asked to end";
    } else if (run.generation != repositoryGeneration) {
        run.failure = "The repository was changed";
    } else if (outcome == WaitOutcome::TimedOut || pendingOperations > 0) {
        run.failure = QString("%1 files were not sent").arg(pendingOperations);
    }
    run.broken =
        outcome != WaitOutcome::Met || run.generation != repositoryGeneration || pendingOperations > 0;
}

void VYXSaveRestore::sendFinalChecksumFiles(UploadRun &run)
{
    const QString transferError = repository->getErrorString();
    if (repository->getErrorStatus() == RequestFailed) {
        // Which of the transfers failed is not known: what was under way counts as not saved.
        run.failure = transferError;
        run.broken = true;
    }
    if (run.broken || run.heldBack.isEmpty()) {
        return;
    }
    for (const QString &module : std::as_const(run.heldBack)) {
        const QString path = DevicePaths::staged(ItemNames::checksumFileName(module));
        ChecksumLines lines = run.lines[module];
        const QSet<QString> failed = run.failedKeys.value(module);
        lines.removeIf([&](const ChecksumLine &line) { return failed.contains(line.key()); });
        if (!writeChecksumFile(path, lines)) {
            run.failure = QString("'%1' could not be written").arg(path);
            continue;
        }
        sendCounted(run, path, {});
    }
    waitForSends(run);
}

void VYXSaveRestore::reportUpload(UploadRun &run)
{
    const QString transferError = repository->getErrorString();
    if (repository->getErrorStatus() == RequestFailed) {
        run.failure = transferError;
    }
    if (run.failure.isEmpty()) {
        return;
    }
    logError("Error while uploading files: %1", run.failure);
    showFailure("Error while uploading files.", run.failure);
}
