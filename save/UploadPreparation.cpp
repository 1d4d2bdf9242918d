#include "catalogue/ItemNames.h"
#include "catalogue/ModulesList.h"
#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"
#include "repository/RepositorySession.h"
#include "restorable/KnownModules.h"
#include "save/Upload.h"

#include <utility>

// How an upload learns what the repository holds, and makes its plan.

bool Upload::fetchPreviousList()
{
    const QString path = DevicePaths::fetched(ItemNames::modulesListName());
    const RequestOutcome outcome =
        session.getFileAndWait(ItemNames::modulesListName(), path, largestModulesList);
    const ModulesList list = outcome.stored() ? readModulesList(path) : ModulesList();
    QSet<QString> all(list.modules.cbegin(), list.modules.cend());
    for (const RestorableObject &object : modules.objects()) {
        all << object.getName();
    }
    QString fault = outcome.kind == RequestOutcome::Failed ? outcome.text : list.fault;
    if (fault.isEmpty() && all.size() > mostModules) {
        fault = QString("with this device's modules, it would have more than %1 names").arg(mostModules);
    }
    if (!fault.isEmpty()) {
        fail("'" + ItemNames::modulesListName() + "'", fault);
        return false;
    }
    for (const QString &name : list.modules) {
        (KnownModules::isInstalled(name) ? listed : gone) << name;
    }
    return true;
}

/// The modules of the list count also when they do not run: what they have saved keeps its names. Those that
/// are gone count until the list is stored.
void Upload::fetchPreviousState()
{
    QStringList names = listed + gone;
    for (const RestorableObject &object : modules.objects()) {
        if (object.hasItems() && !names.contains(object.getName())) {
            names << object.getName();
        }
    }
    ChecksumSize size;
    for (const QString &name : std::as_const(names)) {
        fetchPreviousLines(name, size);
    }
}

void Upload::fetchPreviousLines(const QString &module, ChecksumSize &size)
{
    const QString entry = ItemNames::checksumFileName(module);
    const QString path = DevicePaths::fetched(entry);
    const RequestOutcome outcome = session.getFileAndWait(entry, path, largestChecksumFile);
    auto lines = outcome.stored() ? readChecksumFile(path, size) : std::nullopt;
    if (!lines && outcome.kind != RequestOutcome::Absent) {
        fail("'" + entry + "'", outcome.stored() ? "what it says cannot be used" : outcome.text);
        unknown << module;
        unfinished << module;
        return;
    }
    if (!lines) {
        logDebug("Could not open repository checksum file (%1): all data are new!", path);
        lines.emplace();
    }
    if (!fetchPreviousAttributes(module, *lines)) {
        unknown << module;
        unfinished << module;
        return;
    }
    if (!listed.contains(module) && !gone.contains(module)) {
        // While the module was not on the list, others may have used the names of its plain files.
        lines->removeIf([](const ChecksumLine &line) { return line.isPlainFile(); });
    }
    previousLines.insert(module, *lines);
}

bool Upload::fetchPreviousAttributes(const QString &module, const ChecksumLines &lines)
{
    const QString entry = ItemNames::attributesFileName(module);
    const QString path = DevicePaths::fetched(entry);
    const RequestOutcome outcome = session.getFileAndWait(entry, path, largestAttributesFile);
    if (outcome.kind == RequestOutcome::Absent) {
        return true;
    }
    const auto attributes = outcome.stored() ? readAttributesFile(path, lines) : std::nullopt;
    if (!attributes) {
        fail("'" + entry + "'", outcome.text);
        return false;
    }
    previousAttributes.insert(module, *attributes);
    return true;
}

/// The lines that the module's file is to have. When all files would be too large with them, the module's
/// stays as it is.
CompletedLines Upload::completedLines(const QString &module, ChecksumSize &size)
{
    const ChecksumLines previous = previousLines.value(module);
    const auto lines = staged.lines.constFind(module);
    if (lines == staged.lines.constEnd()) {
        return allTakenOver(previous);
    }
    CompletedLines completed = completeLines(module, lines.value(), previous, staged.priorities.names());
    const ChecksumSize with = size - ChecksumSize::of(previous) + ChecksumSize::of(completed.lines);
    if (with.isAllowed()) {
        size = with;
        return completed;
    }
    fail("'" + ItemNames::checksumFileName(module) + "'", "the checksum files would be too large with it");
    unfinished << module;
    return allTakenOver(previous);
}

void Upload::makePlan()
{
    LinesByModule current;
    ChecksumSize size;
    for (const ChecksumLines &lines : std::as_const(previousLines)) {
        size = size + ChecksumSize::of(lines);
    }
    QSet<QString> entering;
    for (auto previous = previousLines.cbegin(); previous != previousLines.cend(); ++previous) {
        const QString &module = previous.key();
        if (gone.contains(module)) {
            continue;
        }
        if (!listed.contains(module)) {
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
    plan.emplace(previousLines, current, entering);
    if (!unknown.isEmpty()) {
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
