#include "save/Upload.h"

#include "catalogue/ItemNames.h"
#include "catalogue/RepositoryFormat.h"
#include "commands/Digest.h"
#include "outcome/OperationReport.h"
#include "platform/core/Waiter.h"
#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"
#include "platform/WholeFile.h"
#include "repository/RepositorySession.h"
#include "restorable/KnownModules.h"

#include <QDir>
#include <QFile>

#include <utility>

SendResult Upload::resultOf(const RequestOutcome &outcome)
{
    if (outcome.stored()) {
        return SendResult::Stored;
    }
    return outcome.entryUntouched ? SendResult::Untouched : SendResult::Unknown;
}

Upload::Upload(RepositorySession &session, const OperationContext &context, const SavedState &previous,
               StagedData staged)
    : session(session), context(context), waiter(context.waiter), previous(previous),
      staged(std::move(staged)), unfinished(previous.unknown), failed(previous.failures)
{
}

void Upload::postOnRepository()
{
    if (!previous.isUsable || waiter.mustEnd()) {
        return;
    }
    for (const auto phase :
         {&Upload::makePlan, &Upload::sendHeldChecksumFiles, &Upload::sendData, &Upload::removeDeletedFiles,
          &Upload::sendUnchangedChecksumFiles, &Upload::sendFinalChecksumFiles, &Upload::sendVersionFiles}) {
        (this->*phase)();
        if (waiter.mustEnd()) {
            endEarly();
            return;
        }
    }
}

void Upload::failEntry(const QString &entry, const QString &text, RequestOutcome::Cause cause)
{
    failed << EntryFailure{"'" + entry + "'", text, cause, {}, entry};
}

void Upload::failItem(const PlannedSend &send, const QString &text, RequestOutcome::Cause cause)
{
    const QString module = send.item.getModule();
    failed << EntryFailure{QString("'%1' of module '%2'").arg(send.line.key(), module), text, cause, module,
                           send.item.getPath()};
}

void Upload::sendFile(const QString &path, const QString &entry, const std::function<void(SendResult)> &done)
{
    session.submit({RepositoryRequest::Put, entry, path}, [=, this](const RequestOutcome &outcome) {
        if (!outcome.stored()) {
            failEntry(entry, outcome.text, outcome.cause);
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
        failEntry(entry, QString("'%1' could not be written").arg(path));
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

/// False, and a failure, when it could not be written.
bool Upload::stageFile(const QString &entry, const QByteArray &text)
{
    const QString path = DevicePaths::staged(entry);
    if (writeWholeFile(path, text)) {
        return true;
    }
    failEntry(entry, QString("'%1' could not be written").arg(path));
    return false;
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
        failEntry(ItemNames::checksumFileName(module), "it depends on one that could not be saved");
        unfinished << module;
    }
    logDebug("Done: send cksum files to repository");
}

void Upload::removeDeletedFiles()
{
    logDebug("Remove deleted files");
    if (!plan->settle()) {
        failed << EntryFailure{"the checksum files",
                               "what they may promise depends on a module that could not be saved"};
        unfinished += QSet<QString>(previous.lines.keyBegin(), previous.lines.keyEnd());
        return;
    }
    QList<EntryRemoval> failing;
    QSet<ItemIdentity> gone;
    for (const EntryRemoval &removal : plan->takeRemovals()) {
        logDebug("Remove file: %1", removal.line.key());
        session.submit({RepositoryRequest::Remove, removal.entry, {}},
                       [removal, &failing, &gone](const RequestOutcome &outcome) {
                           if (!outcome.stored()) {
                               logError("Could not remove '%1' from the repository", removal.entry);
                               failing << removal;
                           }
                           gone << ItemIdentity(removal.module, removal.line.identity());
                       });
    }
    session.waitForRequests();
    reportRemoved(gone);
    plan->noteRemovalsFailed(failing);
    logDebug("Done: remove deleted files");
}

/// True when the repository holds the very bytes, as they were fetched at the begin.
bool Upload::isStored(const QString &entry, const QByteArray &content)
{
    QFile fetched(DevicePaths::fetched(entry));
    return fetched.open(QIODevice::ReadOnly) && fetched.read(content.size() + 1) == content;
}

/// The files of staged modules whose lines stay the same are renewed where they are written otherwise.
void Upload::sendUnchangedChecksumFiles()
{
    QList<ChecksumSend> files;
    for (const QString &module : staged.lines.keys()) {
        const ChecksumLines lines = previous.lines.value(module);
        if (!unfinished.contains(module) && plan->isFinal(module) &&
            !isStored(ItemNames::checksumFileName(module), checksumText(lines))) {
            files << ChecksumSend{module, lines};
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
    context.report.enter(OperationReport::Phase::Finishing);
    logDebug("Send version files to repository");
    QStringList names = leavesGone() ? previous.listed : previous.listed + previous.gone;
    for (const RestorableObject &object : context.modules.objects()) {
        if (unfinished.contains(object.getName()) || !context.options.concerns(object.getName())) {
            continue;
        }
        // Other modules' entries can depend on the list, so a module is on it even without its version.
        const QString entry = ItemNames::versionFileName(object.getName());
        if (!isStored(entry, object.versionLine())) {
            sendFile(DevicePaths::staged(entry), entry, [](SendResult) {});
        }
        if (previous.unknown.isEmpty() && !names.contains(object.getName())) {
            names << object.getName();
        }
    }
    session.waitForRequests();
    if (!waiter.mustEnd()) {
        sendModulesList(names);
    }
}

/// The outcome is waited for with that of the list.
void Upload::sendFormat()
{
    const QString entry = ItemNames::formatName();
    if (!isStored(entry, formatText()) && stageFile(entry, formatText())) {
        sendFile(DevicePaths::staged(entry), entry, [](SendResult) {});
    }
}

void Upload::sendModulesList(const QStringList &names)
{
    logDebug("Send modules list file to repository");
    const QString entry = ItemNames::modulesListName();
    const QByteArray text = names.isEmpty() ? QByteArray() : (names.join('\n') + "\n").toUtf8();
    bool stored = isStored(entry, text);
    sendFormat();
    if (!stored && !stageFile(entry, text)) {
        session.waitForRequests();
        return;
    }
    if (!stored) {
        sendFile(DevicePaths::staged(entry), entry,
                 [&](SendResult result) { stored = result == SendResult::Stored; });
    }
    session.waitForRequests();
    if (stored) {
        plan->noteListed(names);
        sendFinalChecksumFiles();
    }
    logDebug("Done: send modules list file to repository");
}
