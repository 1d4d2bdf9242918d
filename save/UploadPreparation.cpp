#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"
#include "repository/RepositorySession.h"
#include "restorable/KnownModules.h"
#include "save/Upload.h"

#include <QFile>

#include <algorithm>

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

/// The modules of the list count also when they do not run, or are gone: what they have saved takes part in
/// the names of entries.
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
    if (!listed.contains(module) && !gone.contains(module)) {
        // While the module was not on the list, others may have used the names of its plain files.
        lines->removeIf([](const ChecksumLine &line) { return line.isPlainFile(); });
    }
    previousLines.insert(module, *lines);
}

LinesByModule Upload::completedLines()
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
    return current;
}

/// Modules that are gone leave the list, unless another module's entry would have to get another name for it:
/// it cannot get that in the same moment.
void Upload::leaveOutGoneModules(LinesByModule &current)
{
    const auto without = [this](LinesByModule lines) {
        lines.removeIf([this](const LinesByModule::iterator &module) { return gone.contains(module.key()); });
        return lines;
    };
    const bool known = std::none_of(gone.cbegin(), gone.cend(),
                                    [this](const QString &module) { return unknown.contains(module); });
    const LinesByModule previousLeft = without(previousLines);
    const LinesByModule currentLeft = without(current);
    if (known && SavedEntries(previousLeft).agreesWith(SavedEntries(previousLines)) &&
        SavedEntries(currentLeft).agreesWith(SavedEntries(current))) {
        previousLines = previousLeft;
        current = currentLeft;
    } else {
        listed += gone;
    }
}

void Upload::makePlan()
{
    LinesByModule current = completedLines();
    leaveOutGoneModules(current);
    LinesByModule ofListed = current;
    ofListed.removeIf(
        [this](const LinesByModule::iterator &module) { return !listed.contains(module.key()); });
    const QSet<QString> notListed =
        QSet<QString>(current.keyBegin(), current.keyEnd()).subtract({listed.cbegin(), listed.cend()});
    if (!SavedEntries(ofListed).agreesWith(SavedEntries(current))) {
        newcomers = notListed;
    }
    plan.emplace(previousLines, current, notListed);
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
