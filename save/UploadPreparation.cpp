#include "catalogue/ItemNames.h"
#include "outcome/OperationReport.h"
#include "platform/logger/LogFields.h"
#include "platform/logger/VYXLogger.h"
#include "save/Upload.h"

#include <QFile>

#include <sys/stat.h>
#include <utility>

// How an upload makes its plan from what the repository holds and what was staged.

namespace {

/// Bytes of a file or database; of a directory they are not known.
quint64 liveSize(const SavedItem &item)
{
    struct stat status = {};
    const bool known = item.getKind() != DirectoryItem &&
                       lstat(QFile::encodeName(item.livePath()).constData(), &status) == 0;
    return known ? static_cast<quint64>(status.st_size) : 0;
}

} // namespace

LinesByModule withoutDigests(LinesByModule lines, const QSet<ItemIdentity> &items)
{
    for (auto module = lines.begin(); module != lines.end() && !items.isEmpty(); ++module) {
        for (ChecksumLine &line : *module) {
            if (items.contains(ItemIdentity(module.key(), line.identity()))) {
                line.setDigest({});
            }
        }
    }
    return lines;
}

void UploadPlan::noteDamaged(const QString &module, const QString &identity)
{
    const ChecksumLine *const saved = before.find(module, identity);
    const ChecksumLine *const line = wanted.find(module, identity);
    if (saved != nullptr) {
        held.remove(previous.entry(module, *saved));
    }
    if (line != nullptr && statuses[module][identity].status == Same) {
        statuses[module][identity].status = Updated;
    }
}

/// The lines that the module's file is to have. When all files would be too large with them, the module's
/// stays as it is.
CompletedLines Upload::completedLines(const QString &module, ChecksumSize &size)
{
    const ChecksumLines before = previous.lines.value(module);
    const auto lines = staged.lines.constFind(module);
    if (lines == staged.lines.constEnd()) {
        return allTakenOver(before);
    }
    const ChecksumLines sound = withoutDigests({{module, before}}, staged.damaged).value(module);
    CompletedLines completed = completeLines(module, lines.value(), sound, context.priorities.names());
    completed.lines.removeIf([&](const ChecksumLine &line) {
        return line.digest().isEmpty() && staged.damaged.contains(ItemIdentity(module, line.identity()));
    });
    const ChecksumSize with = size - ChecksumSize::of(before) + ChecksumSize::of(completed.lines);
    if (with.isAllowed()) {
        size = with;
        return completed;
    }
    failEntry(ItemNames::checksumFileName(module), "the checksum files would be too large with it");
    unfinished << module;
    return allTakenOver(before);
}

/// True when modules that are no longer installed leave the repository. Names of what is not known depend on
/// the list, which stays as it is then; and a save of some modules is about these alone.
bool Upload::leavesGone() const
{
    return previous.unknown.isEmpty() && context.options.modules.isEmpty();
}

/// What is not there has been neither saved nor lost.
void Upload::reportUnread(const QString &module, const ChecksumLine &line) const
{
    struct stat status = {};
    const auto item = SavedItem::parse(module, line);
    if (item && lstat(QFile::encodeName(item->livePath()).constData(), &status) != 0) {
        context.report.noteSkipped();
    } else {
        context.report.noteFailed({module, item ? item->getPath() : line.key(),
                                   "It cannot be read: what was saved of it before stays"});
    }
}

void Upload::makePlan()
{
    LinesByModule current;
    ChecksumSize size;
    for (const ChecksumLines &lines : std::as_const(previous.lines)) {
        size = size + ChecksumSize::of(lines);
    }
    QSet<QString> entering;
    for (const QString &module : previous.lines.keys()) {
        const bool isGone = previous.gone.contains(module);
        if (isGone && context.options.modules.isEmpty()) {
            continue;
        }
        if (!isGone && !previous.listed.contains(module)) {
            entering << module;
        }
        const CompletedLines completed = completedLines(module, size);
        for (const ChecksumLine &line : staged.lines.value(module)) {
            if (line.digest().isEmpty()) {
                const LogFields fields(module, line.key());
                logWarning("'%1' of module '%2' cannot be read: what was saved of it before stays",
                           line.key(), module);
                reportUnread(module, line);
            }
        }
        takenOver.insert(module, completed.takenOver);
        current.insert(module, completed.lines);
    }
    plan.emplace(previous.lines, current, entering);
    for (const auto &[module, identity] : std::as_const(staged.damaged)) {
        plan->noteDamaged(module, identity);
    }
    if (!previous.unknown.isEmpty()) {
        plan->blockNames();
    }
    reportUnchanged();
}

void Upload::preview()
{
    if (!previous.isUsable) {
        return;
    }
    makePlan();
    QSet<ItemIdentity> gone;
    for (const QString &module : previous.lines.keys()) {
        for (const PlannedSend &send : plan->sends(module)) {
            context.report.noteDone({module, send.item.getPath(), "sent", liveSize(send.item)});
        }
        for (const ChecksumLine &line : previous.lines.value(module)) {
            gone << ItemIdentity(module, line.identity());
        }
    }
    reportRemoved(gone);
}

void Upload::reportUnchanged() const
{
    for (const QString &module : previous.lines.keys()) {
        for (const ChecksumLine &line : plan->wantedLines(module)) {
            if (plan->isSame(module, line)) {
                logDebug("Same file: %1", line.key());
                const auto item = SavedItem::parse(module, line);
                context.report.noteSkipped(item ? liveSize(*item) : 0);
            }
        }
    }
}

/// Those that are wanted no more.
void Upload::reportRemoved(const QSet<ItemIdentity> &items) const
{
    for (const QString &module : previous.lines.keys()) {
        QSet<QString> wanted;
        for (const ChecksumLine &line : plan->wantedLines(module)) {
            wanted << line.identity();
        }
        for (const ChecksumLine &line : previous.lines.value(module)) {
            const auto item = SavedItem::parse(module, line);
            if (item && !wanted.contains(line.identity()) &&
                items.contains(ItemIdentity(module, line.identity()))) {
                context.report.noteDone({module, item->getPath(), "removed", 0});
            }
        }
    }
}
