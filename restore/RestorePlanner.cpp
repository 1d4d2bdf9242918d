#include "restore/RestorePlanner.h"

#include "catalogue/ItemNames.h"
#include "catalogue/ModulesList.h"
#include "platform/core/Middleware.h"
#include "platform/core/Waiter.h"
#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"
#include "restorable/KnownModules.h"
#include "staging/OperationContext.h"
#include "staging/StagingArea.h"

#include <QFile>

RestorePlanner::RestorePlanner(const OperationContext &context, RepositorySession &session,
                               StagingArea &staging)
    : context(context), files(session), staging(staging)
{
}

bool RestorePlanner::getFromRepository()
{
    files.askForList();
    for (const RestorableObject &object : context.modules.objects()) {
        askFor(object.getName());
    }
    files.fetch();
    const auto modules = takeModulesList();
    if (!modules) {
        return false;
    }
    for (const QString &module : *modules) {
        askFor(module);
    }
    files.fetch();
    for (const QString &module : *modules) {
        takeSavedState(module);
    }
    for (const RestorableObject &object : context.modules.objects()) {
        if (!modules->contains(object.getName())) {
            logWarning("Module '%1' is left out: it is not on the list of saved modules", object.getName());
        }
    }
    saved.emplace(savedLines);
    stage();
    for (const QString &module : modulePlans.keys()) {
        planModule(module);
    }
    if (!failure.isEmpty() && !context.waiter.mustEnd()) {
        context.middleware.showFailure("Error while downloading files.", failure);
    }
    return true;
}

bool RestorePlanner::isHere(const QString &module) const
{
    const RestorableObject *object = context.modules.findObject(module);
    return object != nullptr && object->hasItems();
}

/// Which entries plain files have depends on the checksum files of all saved modules, also of those that are
/// not on this device.
void RestorePlanner::askFor(const QString &module)
{
    files.askForChecksums(module);
    if (isHere(module)) {
        files.askForVersion(module);
        files.askForAttributes(module);
    }
}

std::optional<QStringList> RestorePlanner::takeModulesList()
{
    const QString path = DevicePaths::fetched(ItemNames::modulesListName());
    const RequestOutcome outcome = files.outcome(ItemNames::modulesListName());
    const ModulesList list = outcome.stored() ? readModulesList(path) : ModulesList();
    for (const QString &name : list.refused) {
        logError("Module '%1' of the repository is refused: it has no usable name", name);
    }
    if (outcome.stored() && list.fault.isEmpty()) {
        return list.modules;
    }
    if (!list.fault.isEmpty()) {
        logError("The list of saved modules is refused: %1", list.fault);
    }
    if (!context.waiter.mustEnd()) {
        logError("Error in opening local file '%1/modules-list.sav'", DevicePaths::restoreDirectory());
        context.middleware.showFailure("Error while downloading files.",
                                       "Could not retrieve list of saved applications.");
    }
    return std::nullopt;
}

void RestorePlanner::noteFailure(const QString &text)
{
    failure = text;
    logError("%1", text);
}

void RestorePlanner::takeSavedState(const QString &module)
{
    if (context.waiter.mustEnd()) {
        return;
    }
    const bool here = isHere(module);
    if (takeLines(module, here) && here && (!takeVersion(module) || !takeAttributes(module))) {
        modulePlans.remove(module);
    }
}

/// True when the module's saved lines are known; then it has a plan.
bool RestorePlanner::takeLines(const QString &module, bool here)
{
    const QString entry = ItemNames::checksumFileName(module);
    const QString path = DevicePaths::fetched(entry);
    const RequestOutcome outcome = files.outcome(entry);
    const auto lines = outcome.stored() ? readChecksumFile(path, savedSize) : std::nullopt;
    if (lines) {
        savedLines.insert(module, *lines);
    } else if (outcome.kind != RequestOutcome::Absent) {
        entriesKnown = false;
        noteFailure(QString("Could not fetch '%1' from the repository").arg(entry));
    }
    if (!here) {
        return false;
    }
    if (!lines) {
        logWarning("Module '%1' is left out: what was saved of it is not known", module);
        return false;
    }
    modulePlans.insert(module, {});
    return true;
}

bool RestorePlanner::takeVersion(const QString &module)
{
    const QString entry = ItemNames::versionFileName(module);
    const QString path = DevicePaths::fetched(entry);
    const RequestOutcome outcome = files.outcome(entry);
    QFile file(path);
    if (outcome.stored() && file.open(QIODevice::ReadOnly)) {
        modulePlans[module].version = SavedVersion::parse(QString::fromUtf8(file.readLine()).trimmed());
        if (file.error() == QFile::NoError) {
            return true;
        }
    }
    if (outcome.kind == RequestOutcome::Failed) {
        noteFailure(QString("Could not fetch '%1' from the repository").arg(entry));
    }
    logWarning("Could not open module '%1' version file", module);
    return false;
}

/// Without them a file could become readable for more users than it was, so a failure is no absence.
bool RestorePlanner::takeAttributes(const QString &module)
{
    const QString entry = ItemNames::attributesFileName(module);
    const QString path = DevicePaths::fetched(entry);
    const RequestOutcome outcome = files.outcome(entry);
    const auto attributes =
        outcome.stored() ? readAttributesFile(path, savedLines.value(module)) : std::nullopt;
    if (attributes) {
        savedAttributes.insert(module, *attributes);
    } else if (outcome.kind != RequestOutcome::Absent) {
        noteFailure(QString("Could not fetch '%1' from the repository").arg(entry));
        logWarning("Module '%1' is left out: what was saved of it is not known", module);
        return false;
    }
    return true;
}

/// The save's own steps, so that equal data have equal digests.
void RestorePlanner::stage()
{
    const QStringList modules = modulePlans.keys();
    staging.rememberedDigests().begin(context.waiter, context.repository->getRepositoryUrl(),
                                      RememberedDigests::Purpose::Restore);
    for (const QString &module : modules) {
        staging.makeRoomFor({module});
        staging.copyDatabasesIntoTemp({module});
        staging.stageDatabases({module});
    }
    staging.finishDatabases();
    for (const auto priority : {RestorableOrder::high, RestorableOrder::normal, RestorableOrder::low}) {
        staging.stageFiles(modules, priority);
    }
}

void RestorePlanner::planModule(const QString &module)
{
    if (context.waiter.mustEnd()) {
        return;
    }
    // Of what is on the device alone, and of what the repository does not vouch for, nothing can be restored.
    ChecksumLines promised = savedLines.value(module);
    promised.removeIf([](const ChecksumLine &line) { return line.digest().isEmpty(); });
    const ChecksumEntries entries = compareChecksumLines(staging.lines().value(module), promised, false);
    QMap<QString, ChecksumLine> lines;
    for (const ChecksumLine &line : std::as_const(promised)) {
        lines.insert(line.identity(), line);
    }
    for (const ChecksumLine &line : std::as_const(lines)) {
        if (context.waiter.mustEnd()) {
            return;
        }
        const ChecksumEntry entry = entries.value(line.identity());
        const auto item = SavedItem::parse(module, line);
        if (!item) {
            logError("Item '%1' of module '%2' in the repository is refused: it is none of this module's",
                     line.key(), module);
        } else if (entry.status == Same) {
            logDebug("Same file '%1': no need to restore", line.key());
        } else if (const auto planned = planItem({item->getKind(), module, item->getPath(), entry.priority},
                                                 line.digest(), saved->entry(module, line))) {
            modulePlans[module].items << *planned;
        } else {
            modulePlans[module].complete = false;
        }
    }
}

std::optional<FileAttributes> RestorePlanner::attributesOf(const SavedItem &item) const
{
    const AttributesByKey attributes = savedAttributes.value(item.getModule());
    const auto found = attributes.constFind(item.key());
    return found == attributes.cend() ? std::nullopt : std::optional(*found);
}

std::optional<PlannedItem> RestorePlanner::planItem(const SavedItem &item, const QString &digest,
                                                    const QString &entry)
{
    logDebug("New/updated file '%1': download and update", item.key());
    if (!entriesKnown && item.getKind() == FileItem) {
        noteFailure(QString("Could not fetch '%1' from the repository").arg(entry));
        return std::nullopt;
    }
    if (item.getKind() == FileItem) {
        return PlannedItem{item, digest, entry, attributesOf(item)};
    }
    return PlannedItem{item, digest, DevicePaths::fetched(entry), attributesOf(item)};
}
