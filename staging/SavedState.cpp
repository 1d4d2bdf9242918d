#include "staging/SavedState.h"

#include "catalogue/ItemNames.h"
#include "catalogue/ModulesList.h"
#include "catalogue/SavedVersion.h"
#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"
#include "repository/RepositorySession.h"
#include "restorable/KnownModules.h"

#include <optional>
#include <utility>

void SavedState::fail(const QString &entry, const QString &text, const RequestOutcome &outcome)
{
    failures << EntryFailure{"'" + entry + "'", text, outcome.cause, {}, entry};
}

/// The modules of the list count also when they do not run: what they have saved keeps its names. Those that
/// are gone count until the list is stored. Most are known before the list is, and fetched with it.
SavedState SavedState::fetch(RepositorySession &session, const KnownModules &modules,
                             const QSet<QString> &renewed)
{
    SavedState state;
    ControlFiles files(session);
    QStringList names;
    files.askForList();
    for (const RestorableObject &object : modules.objects()) {
        files.askForVersion(object.getName());
        if (object.hasItems()) {
            names << object.getName();
            files.askForChecksums(object.getName());
            files.askForAttributes(object.getName());
        }
    }
    files.fetch();
    state.isUsable =
        state.takeFormat(files) && state.takeList(files.outcome(ItemNames::modulesListName()), modules);
    if (!state.isUsable) {
        return state;
    }
    for (const QString &name : state.listed + state.gone) {
        files.askForChecksums(name);
        files.askForAttributes(name);
        names.removeAll(name);
    }
    files.fetch();
    ChecksumSize size;
    for (const QString &name : state.listed + state.gone + names) {
        state.takeLines(files, name, size, renewed.contains(name));
    }
    for (const RestorableObject &object : modules.objects()) {
        const QString entry = ItemNames::versionFileName(object.getName());
        state.versions.insert(object.getName(), files.outcome(entry));
    }
    return state;
}

bool SavedState::takeFormat(const ControlFiles &files)
{
    const RequestOutcome outcome = files.outcome(ItemNames::formatName());
    isNewer = files.hasNewerFormat();
    if (outcome.kind == RequestOutcome::Failed) {
        fail(ItemNames::formatName(), outcome.text, outcome);
        return false;
    }
    return !isNewer;
}

bool SavedState::takeList(const RequestOutcome &outcome, const KnownModules &modules)
{
    const QString path = DevicePaths::fetched(ItemNames::modulesListName());
    const ModulesList list = outcome.stored() ? readModulesList(path) : ModulesList();
    isFirst = outcome.kind == RequestOutcome::Absent;
    QSet<QString> all(list.modules.cbegin(), list.modules.cend());
    for (const RestorableObject &object : modules.objects()) {
        all << object.getName();
    }
    QString fault = outcome.kind == RequestOutcome::Failed ? outcome.text : list.fault;
    if (fault.isEmpty() && all.size() > mostModules) {
        fault = QString("with this device's modules, it would have more than %1 names").arg(mostModules);
    }
    if (!fault.isEmpty()) {
        fail(ItemNames::modulesListName(), fault, outcome);
        return false;
    }
    for (const QString &name : list.modules) {
        (KnownModules::isInstalled(name) ? listed : gone) << name;
    }
    return true;
}

void SavedState::takeLines(const ControlFiles &files, const QString &module, ChecksumSize &size,
                           bool isRenewed)
{
    const QString entry = ItemNames::checksumFileName(module);
    const QString path = DevicePaths::fetched(entry);
    const RequestOutcome outcome = files.outcome(entry);
    auto ofModule = outcome.stored() ? readChecksumFile(path, size) : std::nullopt;
    if (!ofModule && outcome.kind != RequestOutcome::Absent && !(outcome.stored() && isRenewed)) {
        fail(entry, outcome.stored() ? "what it says cannot be used" : outcome.text, outcome);
        unknown << module;
        return;
    }
    if (!ofModule) {
        logDebug("Could not open repository checksum file (%1): all data are new!", path);
        ofModule.emplace();
        without << module;
    }
    const RequestOutcome ofAttributes = files.outcome(ItemNames::attributesFileName(module));
    if (!takeAttributes(ofAttributes, module, *ofModule, isRenewed)) {
        unknown << module;
        return;
    }
    if (!listed.contains(module) && !gone.contains(module)) {
        // While the module was not on the list, others may have used the names of its plain files.
        ofModule->removeIf([](const ChecksumLine &line) { return line.isPlainFile(); });
    }
    lines.insert(module, *ofModule);
}

bool SavedState::takeAttributes(const RequestOutcome &outcome, const QString &module,
                                const ChecksumLines &ofModule, bool isRenewed)
{
    const QString entry = ItemNames::attributesFileName(module);
    const QString path = DevicePaths::fetched(entry);
    if (outcome.kind == RequestOutcome::Absent) {
        return true;
    }
    const auto found = outcome.stored() ? readAttributesFile(path, ofModule) : std::nullopt;
    if (!found && outcome.stored() && isRenewed) {
        return true;
    }
    if (!found) {
        fail(entry, outcome.text, outcome);
        return false;
    }
    attributes.insert(module, *found);
    return true;
}
