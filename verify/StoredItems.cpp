#include "verify/StoredItems.h"

#include "catalogue/ItemNames.h"
#include "catalogue/ModulesList.h"
#include "outcome/OperationReport.h"
#include "platform/DevicePaths.h"
#include "repository/RepositorySession.h"
#include "restorable/KnownModules.h"
#include "staging/WorkingDirectory.h"

using Outcome::Code;

namespace {

/// Why what is saved is not known.
void reportUnusable(const SavedState &state, OperationReport &report)
{
    for (const EntryFailure &failure : state.failures) {
        const bool unanswered = failure.cause == RequestOutcome::NoAnswer;
        report.end(unanswered ? Code::Unreachable : Code::Damaged, failure.text);
        report.noteFailed({failure.module, failure.item, failure.text});
    }
    report.end(Code::Failed);
}

} // namespace

QString kindName(RestorableItemKind kind)
{
    return kind == FileItem ? "file" : kind == DirectoryItem ? "directory" : "database";
}

std::optional<StoredItems> StoredItems::fetch(const OperationContext &context, RepositorySession &session)
{
    OperationReport &report = context.report;
    if (!context.isUsable(session, "verify") || context.isBrokenOff("verify")) {
        context.isBrokenOff("verify");
        return std::nullopt;
    }
    if (!WorkingDirectory::cleanRestoreDirectory(context.waiter)) {
        report.end(Code::StagingFull);
        return std::nullopt;
    }
    report.enter(OperationReport::Phase::Reading);
    StoredItems stored;
    const KnownModules none(context.middleware);
    stored.state = SavedState::fetch(session, none);
    const RequestOutcome listing =
        session.outcomeOf({RepositoryRequest::List, {}, DevicePaths::fetched(".listing")});
    if (context.isBrokenOff("verify")) {
        return std::nullopt;
    }
    if (stored.state.isNewer) {
        context.refuseFormat("verify");
        return std::nullopt;
    }
    if (stored.state.isFirst) {
        report.end(Code::NothingSaved);
        return std::nullopt;
    }
    if (!stored.state.isUsable) {
        reportUnusable(stored.state, report);
        return std::nullopt;
    }
    for (const QString &name : readModulesList(DevicePaths::fetched(ItemNames::modulesListName())).refused) {
        stored.refused << FailedItem{
            {}, ItemNames::modulesListName(), QString("'%1' is no name of a module").arg(name)};
    }
    if (listing.stored()) {
        stored.entries = listing.entries;
    }
    stored.takeLines();
    return stored;
}

void StoredItems::takeLines()
{
    const SavedEntries names(state.lines);
    for (auto module = state.lines.cbegin(); module != state.lines.cend(); ++module) {
        for (const ChecksumLine &line : module.value()) {
            const QString entry = names.entry(module.key(), line);
            const auto item = SavedItem::parse(module.key(), line);
            if (!item || entry.isEmpty()) {
                refused << FailedItem{module.key(), line.key(), "It is none of this module's"};
            } else if (line.digest().isEmpty()) {
                withoutPromise << entry;
            } else {
                const qint64 size = entries ? entries->value(entry, -1) : -1;
                items << StoredItem{*item, line.identity(), line.digest(), entry, size};
            }
        }
    }
}

QSet<QString> StoredItems::knownEntries() const
{
    QSet<QString> known(withoutPromise);
    known << ItemNames::modulesListName() << ItemNames::formatName();
    for (const StoredItem &one : items) {
        known << one.entry;
    }
    for (const QString &module : state.listed + state.gone + state.unknown.values()) {
        known << ItemNames::versionFileName(module) << ItemNames::checksumFileName(module)
              << ItemNames::attributesFileName(module) << ItemNames::migrationProgramName(module);
    }
    return known;
}
