#include "save/Upload.h"

#include "catalogue/ItemNames.h"
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
          &Upload::removeDeletedFiles, &Upload::sendUnchangedChecksumFiles, &Upload::sendFinalChecksumFiles,
          &Upload::sendVersionFiles}) {
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

void Upload::sendFile(const QString &path, const QString &entry, const std::function<void(SendResult)> &done)
{
    session.submit({RepositoryRequest::Put, entry, path}, [=, this](const RequestOutcome &outcome) {
        if (!outcome.stored()) {
            fail("'" + entry + "'", outcome.text);
        }
        done(resultOf(outcome));
    });
}

/// Each is staged where the one before of its module was.
void Upload::sendChecksumFiles(const QList<ChecksumSend> &files)
{
    QSet<QString> underWay;
    for (const ChecksumSend &file : files) {
        if (underWay.contains(file.module)) {
            session.waitForRequests();
        }
        underWay << file.module;
        sendChecksumFile(file);
    }
    session.waitForRequests();
}

void Upload::sendChecksumFile(const ChecksumSend &file)
{
    const QString entry = ItemNames::checksumFileName(file.module);
    const QString path = DevicePaths::staged(entry);
    if (!writeChecksumFile(path, file.lines)) {
        logError("Can not open CKSUM (%1) file for module %2", path, file.module);
        fail("'" + entry + "'", QString("'%1' could not be written").arg(path));
        unfinished << file.module;
        return;
    }
    sendFile(path, entry, [=, this](SendResult result) {
        plan->note(file, result);
        if (result != SendResult::Stored) {
            unfinished << file.module;
        }
    });
}

void Upload::sendHeldChecksumFiles()
{
    logDebug("Send cksum files to repository");
    for (auto files = plan->nextHeldFiles(); !files.isEmpty() && !waiter.mustEnd();
         files = plan->nextHeldFiles()) {
        sendChecksumFiles(files);
        for (const ChecksumSend &file : std::as_const(files)) {
            if (unfinished.contains(file.module)) {
                plan->block(file.module);
            }
        }
    }
    for (const QString &module : plan->closeHeldFiles()) {
        fail("'" + ItemNames::checksumFileName(module) + "'", "it depends on one that could not be saved");
        unfinished << module;
    }
    logDebug("Done: send cksum files to repository");
}

/// What has to be fetched first is fetched before anything takes its place.
void Upload::sendData()
{
    QList<QPair<PlannedSend, QString>> ready;
    for (const QString &module : previousLines.keys()) {
        for (const PlannedSend &send : plan->sends(module)) {
            if (!waiter.mustEnd() && !plan->isBlocked(module)) {
                ready << qMakePair(send, readySource(send));
            }
        }
    }
    if (waiter.mustEnd()) {
        return;
    }
    logDebug("Send databases and gzipped dirs to repository");
    for (const auto &[send, source] : std::as_const(ready)) {
        if (send.item.getKind() != FileItem) {
            sendItem(send, source);
        }
    }
    sendMigrationPrograms();
    logDebug("Send remaining files");
    for (const auto &[send, source] : std::as_const(ready)) {
        if (send.item.getKind() == FileItem) {
            sendItem(send, source);
        }
    }
    session.waitForRequests();
    logDebug("Done: send remaining files");
}

/// The file to be stored; nothing when the item cannot be.
QString Upload::readySource(const PlannedSend &send)
{
    if (!isEntryCertain(send) || plan->isFrozen(send)) {
        fail(nameOf(send), "its entry depends on what could not be saved");
        return {};
    }
    QString source = sourceOf(send);
    if (source.isEmpty()) {
        plan->note(send, SendResult::Untouched);
        fail(nameOf(send), "what was saved of it could not be fetched");
    }
    return source;
}

void Upload::sendItem(const PlannedSend &send, const QString &source)
{
    if (source.isEmpty()) {
        return;
    }
    if (plan->isFrozen(send)) {
        fail(nameOf(send), "its entry depends on what could not be saved");
        return;
    }
    if (send.item.getKind() == FileItem) {
        logDebug(send.isNew ? "New file: %1 (prefix: %2)" : "Update file: %1 (prefix: %2)", source,
                 send.entry.section("++", 0, -2));
    } else {
        logDebug(send.isNew ? "New file: %1" : "Update file: %1", send.line.key());
    }
    const bool live = source == send.item.livePath();
    const QString within = live ? DevicePaths::moduleData(send.item.getModule()) : QString();
    session.submit({RepositoryRequest::Put, send.entry, source, within},
                   [=, this](const RequestOutcome &outcome) {
                       plan->note(send, resultOf(outcome), outcome.digest);
                       if (!outcome.stored()) {
                           fail(nameOf(send), outcome.text);
                       }
                   });
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
    if (send.entry != send.heldAs || fetchHeld(send).isEmpty()) {
        return false;
    }
    plan->confirm(send);
    return true;
}

void Upload::sendMigrationPrograms()
{
    for (const QString &module : std::as_const(staged.migrationPrograms)) {
        if (!unfinished.contains(module)) {
            sendFile(DevicePaths::migrationProgram(module), ItemNames::migrationProgramName(module),
                     [=, this](SendResult result) {
                         if (result != SendResult::Stored) {
                             unfinished << module;
                         }
                     });
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
    for (const EntryRemoval &removal : plan->takeRemovals()) {
        logDebug("Remove file: %1", removal.line.key());
        session.submit({RepositoryRequest::Remove, removal.entry, {}},
                       [=, this](const RequestOutcome &outcome) {
                           if (!outcome.stored()) {
                               logError("Could not remove '%1' from the repository", removal.entry);
                               plan->noteRemovalFailed(removal);
                           }
                       });
    }
    session.waitForRequests();
    logDebug("Done: remove deleted files");
}

/// The files of all staged modules are renewed, whatever has happened to them in the repository.
void Upload::sendUnchangedChecksumFiles()
{
    QList<ChecksumSend> files;
    for (const QString &module : staged.lines.keys()) {
        if (!unfinished.contains(module) && plan->isFinal(module)) {
            files << ChecksumSend{module, previousLines.value(module)};
        }
    }
    sendChecksumFiles(files);
}

void Upload::sendFinalChecksumFiles()
{
    for (auto files = plan->nextFinalFiles(unfinished); !files.isEmpty() && !waiter.mustEnd();
         files = plan->nextFinalFiles(unfinished)) {
        sendChecksumFiles(files);
    }
}

void Upload::sendVersionFiles()
{
    logDebug("Send version files to repository");
    // Names of what is not known depend on the list: it stays as it is then.
    QStringList names = unknown.isEmpty() ? listed : listed + gone;
    for (const RestorableObject &object : modules.objects()) {
        if (unfinished.contains(object.getName())) {
            continue;
        }
        // Other modules' entries can depend on the list, so a module is on it even without its version.
        const QString entry = ItemNames::versionFileName(object.getName());
        sendFile(DevicePaths::staged(entry), entry, [](SendResult) {});
        if (unknown.isEmpty() && !names.contains(object.getName())) {
            names << object.getName();
        }
    }
    session.waitForRequests();
    if (!waiter.mustEnd()) {
        sendModulesList(names);
    }
}

void Upload::sendModulesList(const QStringList &names)
{
    logDebug("Send modules list file to repository");
    QSaveFile list(DevicePaths::staged(ItemNames::modulesListName()));
    const QByteArray text = names.isEmpty() ? QByteArray() : (names.join('\n') + "\n").toUtf8();
    if (!list.open(QIODevice::WriteOnly) || list.write(text) != text.size() || !list.commit()) {
        fail("'" + ItemNames::modulesListName() + "'",
             QString("'%1' could not be written").arg(list.fileName()));
        return;
    }
    bool stored = false;
    sendFile(list.fileName(), ItemNames::modulesListName(),
             [&](SendResult result) { stored = result == SendResult::Stored; });
    session.waitForRequests();
    if (stored) {
        plan->noteListed(names);
        sendFinalChecksumFiles();
    }
    logDebug("Done: send modules list file to repository");
}
