#include "save/Upload.h"

#include "commands/Digest.h"
#include "platform/core/Waiter.h"
#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"
#include "repository/RepositorySession.h"
#include "restorable/KnownModules.h"

#include <QDir>
#include <QFile>
#include <QSaveFile>

#include <utility>

namespace {

QString nameOf(const PlannedSend &send)
{
    return QString("'%1' of module '%2'").arg(send.line.key(), send.item.getModule());
}

SendResult resultOf(const RequestOutcome &outcome)
{
    if (outcome.stored()) {
        return SendResult::Stored;
    }
    return outcome.entryUntouched ? SendResult::Untouched : SendResult::Unknown;
}

} // namespace

Upload::Upload(RepositorySession &session, const KnownModules &modules, Waiter &waiter, StagedData staged)
    : session(session), modules(modules), waiter(waiter), staged(std::move(staged))
{
}

void Upload::postOnRepository()
{
    if (!fetchPreviousList()) {
        return;
    }
    for (const auto phase :
         {&Upload::fetchPreviousState, &Upload::makePlan, &Upload::sendHeldChecksumFiles, &Upload::sendData,
          &Upload::removeDeletedFiles, &Upload::sendFinalChecksumFiles, &Upload::sendVersionFiles}) {
        if (waiter.mustEnd()) {
            return;
        }
        (this->*phase)();
    }
}

void Upload::fail(const QString &what, const QString &text)
{
    failed << UploadFailure{what, text};
}

bool Upload::fetchPreviousList()
{
    const QString path = DevicePaths::fetched(ItemNames::modulesListName());
    const RequestOutcome outcome = session.getFileAndWait(ItemNames::modulesListName(), path);
    if (outcome.kind == RequestOutcome::Absent) {
        return true;
    }
    QFile file(path);
    if (!outcome.stored() || !file.open(QIODevice::ReadOnly)) {
        fail("'" + ItemNames::modulesListName() + "'", outcome.text);
        return false;
    }
    for (const QString &name : QString::fromUtf8(file.readAll()).split('\n', Qt::SkipEmptyParts)) {
        if (ItemNames::isModuleName(name) && !listed.contains(name) && KnownModules::isInstalled(name)) {
            listed << name;
        }
    }
    return true;
}

/// The modules of the list count also when they do not run: what they have saved keeps its names.
void Upload::fetchPreviousState()
{
    QStringList names = listed;
    for (const RestorableObject &object : modules.objects()) {
        if (object.hasItems() && !names.contains(object.getName())) {
            names << object.getName();
        }
    }
    for (const QString &name : std::as_const(names)) {
        fetchPreviousLines(name);
    }
}

void Upload::fetchPreviousLines(const QString &module)
{
    const QString entry = ItemNames::checksumFileName(module);
    const QString path = DevicePaths::fetched(entry);
    const RequestOutcome outcome = session.getFileAndWait(entry, path);
    auto lines = outcome.stored() ? readChecksumFile(path) : std::nullopt;
    if (!lines && outcome.kind != RequestOutcome::Absent) {
        fail("'" + entry + "'", outcome.text);
        unknown << module;
        unfinished << module;
        return;
    }
    if (!lines) {
        logDebug("Could not open repository checksum file (%1): all data are new!", path);
        lines.emplace();
    }
    if (!listed.contains(module)) {
        // While the module was not on the list, others may have used the names of its plain files.
        lines->removeIf([](const ChecksumLine &line) { return line.isPlainFile(); });
    }
    previousLines.insert(module, *lines);
}

void Upload::makePlan()
{
    LinesByModule current;
    for (auto previous = previousLines.cbegin(); previous != previousLines.cend(); ++previous) {
        const QString &module = previous.key();
        const auto lines = staged.lines.constFind(module);
        const CompletedLines completed =
            lines == staged.lines.constEnd()
                ? allTakenOver(previous.value())
                : completeLines(module, lines.value(), previous.value(), staged.priorities.names());
        for (const ChecksumLine &line : staged.lines.value(module)) {
            if (line.digest().isEmpty()) {
                logWarning("'%1' of module '%2' cannot be read: what was saved of it before stays",
                           line.key(), module);
            }
        }
        takenOver.insert(module, completed.takenOver);
        current.insert(module, completed.lines);
    }
    plan.emplace(previousLines, current);
    if (!unknown.isEmpty()) {
        plan->blockPlainFiles();
    }
    for (const QString &module : current.keys()) {
        for (const ChecksumLine &line : std::as_const(current[module])) {
            if (plan->isSame(module, line)) {
                logDebug("Same file: %1", line.key());
            }
        }
    }
}

bool Upload::sendFile(const QString &path, const QString &entry)
{
    const RequestOutcome outcome = session.outcomeOf({RepositoryRequest::Put, entry, path});
    if (!outcome.stored()) {
        fail("'" + entry + "'", outcome.text);
    }
    return outcome.stored();
}

bool Upload::sendChecksumFile(const QString &module, const ChecksumLines &lines)
{
    const QString entry = ItemNames::checksumFileName(module);
    const QString path = DevicePaths::staged(entry);
    if (!writeChecksumFile(path, lines)) {
        logError("Can not open CKSUM (%1) file for module %2", path, module);
        fail("'" + entry + "'", QString("'%1' could not be written").arg(path));
        return false;
    }
    return sendFile(path, entry);
}

void Upload::sendHeldChecksumFiles()
{
    logDebug("Send cksum files to repository");
    for (const QString &module : previousLines.keys()) {
        if (!waiter.mustEnd() && plan->hasChanges(module) &&
            !sendChecksumFile(module, plan->heldLines(module))) {
            plan->block(module);
            unfinished << module;
        }
    }
    logDebug("Done: send cksum files to repository");
}

void Upload::sendData()
{
    logDebug("Send databases and gzipped dirs to repository");
    for (const QString &module : previousLines.keys()) {
        for (const PlannedSend &send : plan->sends(module)) {
            if (send.item.getKind() != FileItem) {
                sendItem(send);
            }
        }
    }
    sendMigrationPrograms();
    logDebug("Done: send databases and gzipped dirs to repository");
    logDebug("Send remaining files");
    for (const QString &module : previousLines.keys()) {
        for (const PlannedSend &send : plan->sends(module)) {
            if (send.item.getKind() == FileItem) {
                sendItem(send);
            }
        }
    }
    logDebug("Done: send remaining files");
}

void Upload::sendItem(const PlannedSend &send)
{
    if (waiter.mustEnd() || plan->isBlocked(send.item.getModule())) {
        return;
    }
    if (!isEntryCertain(send) || plan->isFrozen(send)) {
        fail(nameOf(send), "its entry depends on what could not be saved");
        return;
    }
    const QString source = sourceOf(send);
    if (send.item.getKind() == FileItem) {
        logDebug(send.isNew ? "New file: %1 (prefix: %2)" : "Update file: %1 (prefix: %2)", source,
                 send.entry.prefix);
    } else {
        logDebug(send.isNew ? "New file: %1" : "Update file: %1", send.line.key());
    }
    RequestOutcome outcome = {RequestOutcome::Failed, "what was saved of it could not be fetched", true};
    if (!source.isEmpty()) {
        outcome = session.outcomeOf({RepositoryRequest::Put, send.entry.text(), source});
    }
    plan->note(send, resultOf(outcome), outcome.digest);
    if (!outcome.stored()) {
        fail(nameOf(send), outcome.text);
    }
}

/// The artefact or the live file. When the line describes what the repository holds rather than what is on
/// the device, and only the entry's name changes, the entry itself, fetched for the purpose.
QString Upload::sourceOf(const PlannedSend &send)
{
    const QString &module = send.item.getModule();
    if (!takenOver.value(module).contains(send.line.key())) {
        return send.item.getKind() == FileItem ? send.item.livePath() : send.item.stagedPath();
    }
    return send.heldDigest == send.line.digest() ? fetchHeld(send) : QString();
}

/// What the repository holds of an item, fetched into a file; nothing when it does not hold what it should.
QString Upload::fetchHeld(const PlannedSend &send)
{
    const QString path = DevicePaths::fetched("held/" + send.item.getModule() + "/" + send.line.key());
    QDir().mkpath(QFileInfo(path).path());
    const bool fetched = !send.heldAs.isEmpty() && session.getFileAndWait(send.heldAs, path).stored();
    return fetched && fileDigest(waiter, path) == send.heldDigest ? path : QString();
}

/// As long as the lines of a module are not known, two items could claim the same entry unnoticed. The entry
/// of a plain file is then certain when what it holds is what was saved of the item.
bool Upload::isEntryCertain(const PlannedSend &send)
{
    if (unknown.isEmpty() || send.item.getKind() != FileItem) {
        return true;
    }
    if (send.entry.text() != send.heldAs || fetchHeld(send).isEmpty()) {
        return false;
    }
    plan->confirm(send);
    return true;
}

void Upload::sendMigrationPrograms()
{
    for (const QString &module : std::as_const(staged.migrationPrograms)) {
        if (waiter.mustEnd() || unfinished.contains(module)) {
            continue;
        }
        if (!sendFile(DevicePaths::migrationProgram(module), ItemNames::migrationProgramName(module))) {
            unfinished << module;
        }
    }
}

void Upload::removeDeletedFiles()
{
    logDebug("Remove deleted files");
    if (!plan->settle()) {
        fail("the checksum files", "what they may promise depends on a module that could not be saved");
        unfinished += QSet<QString>(previousLines.keyBegin(), previousLines.keyEnd());
        return;
    }
    for (const EntryRemoval &removal : plan->removals()) {
        if (waiter.mustEnd()) {
            return;
        }
        logDebug("Remove file: %1", removal.line.key());
        if (!session.outcomeOf({RepositoryRequest::Remove, removal.entry.text(), {}}).stored()) {
            logError("Could not remove '%1' from the repository", removal.entry.text());
            plan->noteRemovalFailed(removal);
        }
    }
    logDebug("Done: remove deleted files");
}

void Upload::sendFinalChecksumFiles()
{
    for (const QString &module : previousLines.keys()) {
        const bool changed = staged.lines.contains(module) || plan->hasChanges(module);
        if (waiter.mustEnd() || unfinished.contains(module) || !changed) {
            continue;
        }
        if (!sendChecksumFile(module, plan->finalLines(module))) {
            unfinished << module;
        }
    }
}

void Upload::sendVersionFiles()
{
    logDebug("Send version files to repository");
    QStringList names = listed;
    for (const RestorableObject &object : modules.objects()) {
        const QString entry = ItemNames::versionFileName(object.getName());
        const bool stored = !waiter.mustEnd() && !unfinished.contains(object.getName()) &&
                            sendFile(DevicePaths::staged(entry), entry);
        if (stored && !names.contains(object.getName())) {
            names << object.getName();
        }
    }
    if (waiter.mustEnd()) {
        return;
    }
    logDebug("Send modules list file to repository");
    QSaveFile list(DevicePaths::staged(ItemNames::modulesListName()));
    const QByteArray text = names.isEmpty() ? QByteArray() : (names.join('\n') + "\n").toUtf8();
    if (!list.open(QIODevice::WriteOnly) || list.write(text) != text.size() || !list.commit()) {
        fail("'" + ItemNames::modulesListName() + "'",
             QString("'%1' could not be written").arg(list.fileName()));
        return;
    }
    sendFile(DevicePaths::staged(ItemNames::modulesListName()), ItemNames::modulesListName());
    logDebug("Done: send modules list file to repository");
}
