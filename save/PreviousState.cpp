#include "save/PreviousState.h"

#include "catalogue/ItemNames.h"
#include "catalogue/ModulesList.h"
#include "catalogue/SavedVersion.h"
#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"
#include "repository/RepositorySession.h"
#include "restorable/KnownModules.h"

#include <optional>
#include <utility>

void PreviousState::fail(const QString &entry, const QString &text)
{
    failures << UploadFailure{"'" + entry + "'", text};
}

/// The modules of the list count also when they do not run: what they have saved keeps its names. Those that
/// are gone count until the list is stored.
PreviousState PreviousState::fetch(RepositorySession &session, const KnownModules &modules)
{
    PreviousState state;
    state.isUsable = state.fetchList(session, modules);
    if (!state.isUsable) {
        return state;
    }
    QStringList names = state.listed + state.gone;
    for (const RestorableObject &object : modules.objects()) {
        if (object.hasItems() && !names.contains(object.getName())) {
            names << object.getName();
        }
    }
    ChecksumSize size;
    for (const QString &name : std::as_const(names)) {
        state.fetchLines(session, name, size);
    }
    // A version file that is not there, or not to be had, is sent.
    for (const RestorableObject &object : modules.objects()) {
        const QString entry = ItemNames::versionFileName(object.getName());
        session.getFileAndWait(entry, DevicePaths::fetched(entry), largestVersionFile);
    }
    return state;
}

bool PreviousState::fetchList(RepositorySession &session, const KnownModules &modules)
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
        fail(ItemNames::modulesListName(), fault);
        return false;
    }
    for (const QString &name : list.modules) {
        (KnownModules::isInstalled(name) ? listed : gone) << name;
    }
    return true;
}

void PreviousState::fetchLines(RepositorySession &session, const QString &module, ChecksumSize &size)
{
    const QString entry = ItemNames::checksumFileName(module);
    const QString path = DevicePaths::fetched(entry);
    const RequestOutcome outcome = session.getFileAndWait(entry, path, largestChecksumFile);
    auto ofModule = outcome.stored() ? readChecksumFile(path, size) : std::nullopt;
    if (!ofModule && outcome.kind != RequestOutcome::Absent) {
        fail(entry, outcome.stored() ? "what it says cannot be used" : outcome.text);
        unknown << module;
        return;
    }
    if (!ofModule) {
        logDebug("Could not open repository checksum file (%1): all data are new!", path);
        ofModule.emplace();
    }
    if (!fetchAttributes(session, module, *ofModule)) {
        unknown << module;
        return;
    }
    if (!listed.contains(module) && !gone.contains(module)) {
        // While the module was not on the list, others may have used the names of its plain files.
        ofModule->removeIf([](const ChecksumLine &line) { return line.isPlainFile(); });
    }
    lines.insert(module, *ofModule);
}

bool PreviousState::fetchAttributes(RepositorySession &session, const QString &module,
                                    const ChecksumLines &ofModule)
{
    const QString entry = ItemNames::attributesFileName(module);
    const QString path = DevicePaths::fetched(entry);
    const RequestOutcome outcome = session.getFileAndWait(entry, path, largestAttributesFile);
    if (outcome.kind == RequestOutcome::Absent) {
        return true;
    }
    const auto found = outcome.stored() ? readAttributesFile(path, ofModule) : std::nullopt;
    if (!found) {
        fail(entry, outcome.text);
        return false;
    }
    attributes.insert(module, *found);
    return true;
}
