#include "catalogue/ItemNames.h"
#include "commands/Digest.h"
#include "outcome/OperationReport.h"
#include "platform/core/Waiter.h"
#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"
#include "repository/RepositorySession.h"
#include "save/Upload.h"
#include "staging/LiveAttributes.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>

// The phase of an upload in which the items themselves are stored.

void Upload::sendData()
{
    const QList<ReadySend> ready = readySends();
    const QSet<QString> withoutAttributes = sendAttributes(ready);
    if (waiter.mustEnd()) {
        return;
    }
    logDebug("Send databases, gzipped dirs and remaining files to repository");
    beginSending(ready);
    for (const ReadySend &item : ready) {
        if (withoutAttributes.contains(item.send.item.getModule())) {
            plan->note(item.send, SendResult::Untouched);
        } else {
            sendItem(item);
        }
    }
    sendMigrationPrograms();
    session.waitForRequests();
    logDebug("Done: send databases, gzipped dirs and remaining files to repository");
}

void Upload::beginSending(const QList<ReadySend> &ready) const
{
    quint64 bytes = 0;
    for (const ReadySend &item : ready) {
        bytes += item.bytes;
    }
    context.report.enter(OperationReport::Phase::Sending, bytes);
    context.report.meterBy([&session = session, before = session.transferProgress()] {
        return session.transferProgress() - before;
    });
}

/// What has to be fetched first is fetched before anything takes its place.
QList<Upload::ReadySend> Upload::readySends()
{
    QList<ReadySend> ready;
    for (const QString &module : previous.lines.keys()) {
        for (const PlannedSend &send : plan->sends(module)) {
            const bool possible = !waiter.mustEnd() && !plan->isBlocked(module);
            if (const QString source = possible ? readySource(send) : QString(); !source.isEmpty()) {
                ready << ReadySend{send, source, static_cast<quint64>(QFileInfo(source).size())};
            }
        }
    }
    return ready;
}

/// Before the items themselves: wherever the upload is cut off, none is restored for more users than may see
/// it. The modules whose attributes could not be stored.
QSet<QString> Upload::sendAttributes(const QList<ReadySend> &ready)
{
    QMap<QString, QSet<QString>> sending;
    for (const ReadySend &item : ready) {
        sending[item.send.item.getModule()] << item.send.line.identity();
    }
    const QMap<QString, AttributesByKey> live = readLiveAttributes();
    QSet<QString> failing;
    for (const QString &module : previous.lines.keys()) {
        const AttributesByKey now = attributesOf(module, sending.value(module), live.value(module));
        const bool told =
            now == previous.attributes.value(module) &&
            (now.isEmpty() || isStored(ItemNames::attributesFileName(module), attributesText(now)));
        const bool same = previous.gone.contains(module) || told;
        if (waiter.mustEnd() || plan->isBlocked(module) || same) {
            continue;
        }
        sendAttributes(module, now, failing);
    }
    session.waitForRequests();
    unfinished += failing;
    return failing;
}

/// The module is among those that fail until they are stored.
void Upload::sendAttributes(const QString &module, const AttributesByKey &attributes, QSet<QString> &failing)
{
    const QString entry = ItemNames::attributesFileName(module);
    sent.attributes << module;
    failing << module;
    if (stageFile(entry, attributesText(attributes))) {
        sendFile(DevicePaths::staged(entry), entry, [&failing, module](SendResult result) {
            if (result == SendResult::Stored) {
                failing.remove(module);
            }
        });
    }
}

QMap<QString, AttributesByKey> Upload::readLiveAttributes() const
{
    QMap<QString, AttributesByKey> live;
    QList<std::function<void()>> works;
    for (const QString &module : previous.lines.keys()) {
        works << [module, lines = plan->wantedLines(module), &found = live[module]] {
            found = liveAttributes(module, lines);
        };
    }
    waiter.runAllBeside(works);
    return live;
}

/// What the module's attributes file is to hold. An item that stays as it was saved, or has just vanished,
/// keeps its own.
AttributesByKey Upload::attributesOf(const QString &module, const QSet<QString> &sent,
                                     const AttributesByKey &live) const
{
    const ChecksumLines lines = plan->wantedLines(module);
    const AttributesByKey before = previous.attributes.value(module);
    AttributesByKey attributes;
    for (const ChecksumLine &line : lines) {
        const QString key = line.key();
        const bool isSaved = sent.contains(line.identity()) || plan->isSame(module, line);
        const bool stays =
            !isSaved || takenOver.value(module).contains(line.identity()) || !live.contains(key);
        const AttributesByKey &source = stays ? before : live;
        if (source.contains(key)) {
            attributes.insert(key, source.value(key));
        }
    }
    return attributes;
}

/// The file to be stored; nothing when the item cannot be.
QString Upload::readySource(const PlannedSend &send)
{
    if (!isEntryCertain(send) || plan->isFrozen(send)) {
        failItem(send, "its entry depends on what could not be saved");
        return {};
    }
    QString source = sourceOf(send);
    if (source.isEmpty()) {
        plan->note(send, SendResult::Untouched);
        failItem(send, "what was saved of it could not be fetched");
    }
    return source;
}

void Upload::sendItem(const ReadySend &ready)
{
    const PlannedSend send = ready.send;
    if (plan->isFrozen(send)) {
        failItem(send, "its entry depends on what could not be saved");
        return;
    }
    if (send.item.getKind() == FileItem) {
        logDebug(send.isNew ? "New file: %1 (prefix: %2)" : "Update file: %1 (prefix: %2)", ready.source,
                 send.entry.section("++", 0, -2));
    } else {
        logDebug(send.isNew ? "New file: %1" : "Update file: %1", send.line.key());
    }
    const bool live = ready.source == send.item.livePath();
    const QString within = live ? DevicePaths::moduleData(send.item.getModule()) : QString();
    session.submit(
        {RepositoryRequest::Put, send.entry, ready.source, within}, [=, this](const RequestOutcome &outcome) {
            plan->note(send, resultOf(outcome), outcome.digest);
            context.report.advance(ready.bytes);
            if (outcome.stored()) {
                sent.items << ItemIdentity(send.item.getModule(), send.line.identity());
                context.report.noteDone({send.item.getModule(), send.item.getPath(), "sent", ready.bytes});
                context.report.noteModule(send.item.getModule(), OperationReport::Step::Sent);
            } else {
                failItem(send, outcome.text, outcome.cause);
            }
        });
}

/// The artefact or the live file. When the line describes what the repository holds, and only the entry's
/// name changes, the entry itself, fetched for the purpose.
QString Upload::sourceOf(const PlannedSend &send)
{
    const bool isFile = send.item.getKind() == FileItem;
    QString made = isFile ? send.item.livePath() : send.item.stagedPath();
    const bool isLive = !takenOver.value(send.item.getModule()).contains(send.line.identity());
    if (isLive && (isFile || QFile::exists(made))) {
        return made;
    }
    return send.heldDigest == send.line.digest() ? fetchHeld(send) : QString();
}

/// What the repository holds of an item, fetched into a file; nothing when it does not hold what it should.
QString Upload::fetchHeld(const PlannedSend &send)
{
    const QByteArray item = (send.item.getModule() + "\t" + send.line.identity()).toUtf8();
    const QByteArray name = QCryptographicHash::hash(item, QCryptographicHash::Md5).toHex();
    const QString path = DevicePaths::fetched("held/" + QString::fromLatin1(name));
    QDir().mkpath(DevicePaths::fetched("held"));
    const bool fetched = !send.heldAs.isEmpty() && session.getFileAndWait(send.heldAs, path).stored();
    return fetched && fileDigest(waiter, path) == send.heldDigest ? path : QString();
}

/// As long as the lines of a module are not known, two items could claim the same entry unnoticed. The entry
/// of a plain file is then certain when what it holds is what was saved of the item.
bool Upload::isEntryCertain(const PlannedSend &send)
{
    if (previous.unknown.isEmpty() || send.item.getKind() != FileItem) {
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
