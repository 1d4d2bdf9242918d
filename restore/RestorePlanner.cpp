#include "restore/RestorePlanner.h"

#include "catalogue/ItemNames.h"
#include "catalogue/ModulesList.h"
#include "outcome/OperationReport.h"
#include "platform/core/Waiter.h"
#include "platform/DevicePaths.h"
#include "platform/logger/LogFields.h"
#include "platform/logger/VYXLogger.h"
#include "restorable/KnownModules.h"
#include "restore/LiveData.h"
#include "staging/OperationContext.h"
#include "staging/StagingArea.h"

#include <QFile>
#include <QFileInfo>

#include <sys/stat.h>

namespace {

/// What keeps an item from being put back; empty for nothing.
QString obstacleOf(const SavedItem &item)
{
    const QFileInfo live(item.livePath());
    if (!LiveData::belongsToModule(item.livePath(), item.getModule())) {
        return "Refused: it does not lie below the module's data";
    }
    QFileInfo above(live.path());
    while (!above.exists() && !above.isSymLink() && !above.isRoot()) {
        above = QFileInfo(above.path());
    }
    if (!above.isDir()) {
        return QString("'%1' is in the way: it is no directory").arg(above.filePath());
    }
    const bool blocked = item.getKind() == DatabaseItem && live.isDir() && !live.isSymLink();
    return blocked ? "There is a directory in its place" : QString();
}

} // namespace

const char *const RestorePlanner::lowerPriority = "Its priority is not restored";

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
    if (files.hasNewerFormat()) {
        context.refuseFormat("restore");
        return false;
    }
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
        if (!modules->contains(object.getName()) && context.options.concerns(object.getName())) {
            logWarning("Module '%1' is left out: it is not on the list of saved modules", object.getName());
            leaveOut(object.getName(), "It is not on the list of saved modules");
        }
    }
    saved.emplace(savedLines);
    stage();
    for (const QString &module : modulePlans.keys()) {
        planModule(module);
    }
    if (!failure.isEmpty() && !context.waiter.mustEnd()) {
        context.showFailure("Error while downloading files.", failure);
    }
    return true;
}

bool RestorePlanner::isHere(const QString &module) const
{
    const RestorableObject *object = context.modules.findObject(module);
    return object != nullptr && object->hasItems() && context.options.concerns(module);
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
    const RequestOutcome format = files.outcome(ItemNames::formatName());
    const bool formatKnown = format.kind != RequestOutcome::Failed;
    const RequestOutcome outcome = formatKnown ? files.outcome(ItemNames::modulesListName()) : format;
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
        context.showFailure("Error while downloading files.",
                            "Could not retrieve list of saved applications.");
        context.report.end(outcome.kind == RequestOutcome::Absent      ? Outcome::Code::NothingSaved
                           : outcome.cause == RequestOutcome::NoAnswer ? Outcome::Code::Unreachable
                                                                       : Outcome::Code::Failed,
                           list.fault.isEmpty() ? outcome.text : list.fault);
    }
    return std::nullopt;
}

void RestorePlanner::leaveOut(const QString &module, const QString &why)
{
    previewed << PreviewedItem{module, {}, "keep", why};
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
    const bool known = takeLines(module, here) && (!here || (takeVersion(module) && takeAttributes(module)));
    if (!known && here) {
        modulePlans.remove(module);
        leaveOut(module, "What was saved of it is not known");
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
    const auto databaseBytes = static_cast<quint64>(staging.sizeOfDatabases(modules));
    const quint64 fileBytes = staging.measureFiles(
        modules, {}, [&report = context.report](quint64 bytes) { report.advance(bytes); });
    context.report.enter(OperationReport::Phase::Comparing, databaseBytes + fileBytes);
    for (const QString &module : modules) {
        context.report.setModules({module});
        staging.makeRoomFor({module});
        staging.copyDatabasesIntoTemp({module});
        staging.stageDatabases({module});
        context.report.advance(static_cast<quint64>(staging.sizeOfDatabases({module})));
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
    promised.removeIf([&](const ChecksumLine &line) {
        if (line.digest().isEmpty()) {
            previewed << PreviewedItem{module, line.key(), "keep", "The repository does not vouch for it"};
        }
        return line.digest().isEmpty();
    });
    const ChecksumEntries entries = compareChecksumLines(staging.lines().value(module), promised, false);
    QMap<QString, ChecksumLine> lines;
    for (const ChecksumLine &line : std::as_const(promised)) {
        lines.insert(line.identity(), line);
    }
    for (const ChecksumLine &line : std::as_const(lines)) {
        if (!context.waiter.mustEnd()) {
            planLine(module, line, entries.value(line.identity()));
        }
    }
}

void RestorePlanner::planLine(const QString &module, const ChecksumLine &line, const ChecksumEntry &entry)
{
    const auto item = SavedItem::parse(module, line);
    const LogFields fields(module, item ? item->getPath() : line.key());
    const auto note = [&](const char *action, const QString &why = {}) {
        previewed << PreviewedItem{module, item ? item->getPath() : line.key(), action, why};
    };
    if (!item) {
        logError("Item '%1' of module '%2' in the repository is refused: it is none of this module's",
                 line.key(), module);
        note("keep", "Refused: it is none of this module's");
    } else if (entry.status == Same) {
        logDebug("Same file '%1': no need to restore", line.key());
        note("same");
    } else if (const auto planned = planItem({item->getKind(), module, item->getPath(), entry.priority},
                                             line.digest(), saved->entry(module, line))) {
        modulePlans[module].items << *planned;
        if (!context.priorities.names().contains(entry.priority)) {
            note("keep", lowerPriority);
        } else {
            const QString obstacle = obstacleOf(planned->item);
            note(!obstacle.isEmpty() ? "keep" : planned->isNew ? "create" : "replace", obstacle);
        }
    } else {
        modulePlans[module].complete = false;
        note("keep", "Where the repository holds it is not known");
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
    struct stat status = {};
    const bool isNew = lstat(QFile::encodeName(item.livePath()).constData(), &status) != 0;
    const bool sized = !isNew && S_ISREG(status.st_mode);
    return PlannedItem{item,
                       digest,
                       entry,
                       item.getKind() == FileItem ? QString() : DevicePaths::fetched(entry),
                       attributesOf(item),
                       isNew,
                       sized ? static_cast<quint64>(status.st_size) : 0};
}
