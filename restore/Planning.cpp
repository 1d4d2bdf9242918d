#include "catalogue/ItemNames.h"
#include "catalogue/SavedEntries.h"
#include "catalogue/SavedItem.h"
#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"
#include "restore/DownloadList.h"
#include "service/VYXSaveRestore.h"
#include "staging/Staging.h"

#include <QDir>
#include <QFile>

namespace {

/// The module names of a modules list, up to its first empty line; names that cannot be modules are left out.
QStringList listedModules(QFile &list)
{
    QStringList modules;
    for (QString name = QString::fromUtf8(list.readLine()).trimmed(); !name.isEmpty();
         name = QString::fromUtf8(list.readLine()).trimmed()) {
        if (!ItemNames::isModuleName(name)) {
            logError("Module '%1' of the repository is refused: it has no usable name", name);
        } else if (!modules.contains(name)) {
            modules << name;
        }
    }
    return modules;
}

/// An item that is missing here and that the repository does not know either is nothing to restore.
void forgetUnknownItems(ChecksumEntries &entries, const QString &module, const ChecksumLines &saved)
{
    QSet<QString> savedKeys;
    for (const ChecksumLine &line : saved) {
        savedKeys << line.key();
    }
    for (const ChecksumLine &line :
         readChecksumFile(Staging::checksumFile(module)).value_or(ChecksumLines())) {
        if (line.digest().isEmpty() && !savedKeys.contains(line.key())) {
            entries.remove(line.key());
        }
    }
}

} // namespace

/// The state of the planning of one restore.
struct VYXSaveRestore::RestorePlan
{
    std::optional<SavedEntries> saved; ///< what the repository holds
    QString failure;                   ///< text of the last failed request
};

bool VYXSaveRestore::getFromRepository()
{
    RestorePlan plan;
    plannedDirectories.clear();
    repository->resetErrorStatus();
    const QString listPath = DevicePaths::fetched(ItemNames::modulesListName());
    getFileAndWait(ItemNames::modulesListName(), listPath, true);
    QFile list(listPath);
    if (!list.open(QIODevice::ReadOnly)) {
        logError("Error in opening local file '%1/modules-list.sav'", DevicePaths::restoreDirectory());
        showFailure("Error while downloading files.", "Could not retrieve list of saved applications.");
        return false;
    }
    const QStringList modules = listedModules(list);
    list.close();
    fetchSavedState(plan, modules);
    for (const QString &module : modules) {
        planModule(plan, module);
    }
    noteFailedRequests(plan);
    if (!plan.failure.isEmpty()) {
        showFailure("Error while downloading files.", plan.failure);
    }
    return true;
}

void VYXSaveRestore::fetch(RestorePlan &plan, const QString &entry, const QString &path)
{
    if (!getFileAndWait(entry, path, true)) {
        plan.failure = QString("Could not fetch '%1' from the repository").arg(entry);
        logError("%1", plan.failure);
    }
}

void VYXSaveRestore::noteFailedRequests(RestorePlan &plan)
{
    const QString text = repository->getErrorString();
    if (repository->getErrorStatus() == RequestFailed) {
        plan.failure = text;
    }
}

/// Which names collide depends on the checksum files of all saved modules, also of those that are not on this
/// device; theirs are fetched aside, and need not exist.
void VYXSaveRestore::fetchSavedState(RestorePlan &plan, const QStringList &modules)
{
    LinesByModule lines;
    QDir(DevicePaths::restoreDirectory()).mkpath("elsewhere");
    for (const QString &module : modules) {
        const QString name = ItemNames::checksumFileName(module);
        const RestorableObject *object = knownModules.findObject(module);
        fetch(plan, ItemNames::versionFileName(module),
              DevicePaths::fetched(ItemNames::versionFileName(module)));
        const bool here = object != nullptr && object->hasItems();
        const QString path = here ? DevicePaths::fetched(name) : DevicePaths::fetched("elsewhere/" + name);
        if (here) {
            fetch(plan, name, path);
        } else {
            noteFailedRequests(plan);
            getFileAndWait(name, path, true);
            repository->resetErrorStatus();
        }
        lines.insert(module, readChecksumFile(path).value_or(ChecksumLines()));
    }
    plan.saved.emplace(lines);
}

void VYXSaveRestore::planModule(RestorePlan &plan, const QString &module)
{
    QFile list(DevicePaths::fetched(module + "-downloadlist.txt"));
    if (!list.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        logError("Could not write download list for module '%1'", module);
    }
    copyDatabasesIntoTemp({module});
    for (const auto priority : {RestorableObject::high, RestorableObject::normal, RestorableObject::low}) {
        stageFiles({module}, priority);
    }
    ChecksumEntries entries;
    if (QFile::exists(Staging::checksumFile(module))) {
        entries = compareChecksumFiles(Staging::checksumFile(module),
                                       DevicePaths::fetched(ItemNames::checksumFileName(module)), false);
    }
    forgetUnknownItems(entries, module, plan.saved->lines().value(module));
    for (auto entry = entries.cbegin(); entry != entries.cend(); ++entry) {
        if (entry->status == Same) {
            logDebug("Same file '%1': no need to restore", entry.key());
        } else if (const auto line = planItem(plan, module, entry.key(), *entry)) {
            list.write(line->text().toUtf8());
        }
    }
}

std::optional<DownloadLine> VYXSaveRestore::planItem(RestorePlan &plan, const QString &module,
                                                     const QString &key, const ChecksumEntry &entry)
{
    const auto item = SavedItem::parse(module, ChecksumLine({key, {}, entry.kind, entry.priority}));
    if (!item) {
        logError("Item '%1' of module '%2' in the repository is refused: it is none of this module's", key,
                 module);
        return std::nullopt;
    }
    logDebug("New/updated file '%1': download and update", key);
    if (item->getKind() != FileItem) {
        return planArtefact(plan, *item);
    }
    const ItemNames::EntryName name = plan.saved->plainFile(module, key);
    return DownloadLine{DownloadLine::File, name.text(), item->livePath(), entry.priority};
}

DownloadLine VYXSaveRestore::planArtefact(RestorePlan &plan, const SavedItem &item)
{
    const QString local = DevicePaths::fetched(item.artefact());
    fetch(plan, item.artefact(), local);
    if (item.getKind() == DatabaseItem) {
        return {DownloadLine::Database, local, item.livePath(), item.getPriority()};
    }
    plannedDirectories.insert(local, item.livePath());
    return {DownloadLine::Directory, local, {}, item.getPriority()};
}
