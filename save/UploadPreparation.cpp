#include "catalogue/ItemNames.h"
#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"
#include "repository/RepositorySession.h"
#include "restorable/KnownModules.h"
#include "save/Upload.h"

#include <QFile>

#include <utility>

// How an upload learns what the repository holds, and makes its plan.

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
        QStringList &names = KnownModules::isInstalled(name) ? listed : gone;
        if (ItemNames::isModuleName(name) && !names.contains(name)) {
            names << name;
        }
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
    if (!fetchPreviousAttributes(module)) {
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

bool Upload::fetchPreviousAttributes(const QString &module)
{
    const QString entry = ItemNames::attributesFileName(module);
    const QString path = DevicePaths::fetched(entry);
    const RequestOutcome outcome = session.getFileAndWait(entry, path);
    if (outcome.kind == RequestOutcome::Absent) {
        return true;
    }
    const auto attributes = outcome.stored() ? readAttributesFile(path) : std::nullopt;
    if (!attributes) {
        fail("'" + entry + "'", outcome.text);
        return false;
    }
    previousAttributes.insert(module, *attributes);
    return true;
}

void Upload::makePlan()
{
    LinesByModule current;
    QSet<QString> entering;
    for (auto previous = previousLines.cbegin(); previous != previousLines.cend(); ++previous) {
        const QString &module = previous.key();
        if (gone.contains(module)) {
            continue;
        }
        if (!listed.contains(module)) {
            entering << module;
        }
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
