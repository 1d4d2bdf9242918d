#include "catalogue/ItemNames.h"
#include "platform/logger/VYXLogger.h"
#include "save/Upload.h"

#include <utility>

// How an upload makes its plan from what the repository holds and what was staged.

/// The lines that the module's file is to have. When all files would be too large with them, the module's
/// stays as it is.
CompletedLines Upload::completedLines(const QString &module, ChecksumSize &size)
{
    const ChecksumLines before = previous.lines.value(module);
    const auto lines = staged.lines.constFind(module);
    if (lines == staged.lines.constEnd()) {
        return allTakenOver(before);
    }
    CompletedLines completed = completeLines(module, lines.value(), before, staged.priorities.names());
    const ChecksumSize with = size - ChecksumSize::of(before) + ChecksumSize::of(completed.lines);
    if (with.isAllowed()) {
        size = with;
        return completed;
    }
    fail("'" + ItemNames::checksumFileName(module) + "'", "the checksum files would be too large with it");
    unfinished << module;
    return allTakenOver(before);
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
        if (previous.gone.contains(module)) {
            continue;
        }
        if (!previous.listed.contains(module)) {
            entering << module;
        }
        const CompletedLines completed = completedLines(module, size);
        for (const ChecksumLine &line : staged.lines.value(module)) {
            if (line.digest().isEmpty()) {
                logWarning("'%1' of module '%2' cannot be read: what was saved of it before stays",
                           line.key(), module);
            }
        }
        takenOver.insert(module, completed.takenOver);
        current.insert(module, completed.lines);
    }
    plan.emplace(previous.lines, current, entering);
    if (!previous.unknown.isEmpty()) {
        plan->blockNames();
    }
    for (const QString &module : current.keys()) {
        for (const ChecksumLine &line : std::as_const(current[module])) {
            if (plan->isSame(module, line)) {
                logDebug("Same file: %1", line.key());
            }
        }
    }
}
