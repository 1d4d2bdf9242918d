#include "verify/VerifyOperation.h"

#include "catalogue/ItemNames.h"
#include "outcome/OperationReport.h"
#include "platform/core/Waiter.h"
#include "platform/DevicePaths.h"
#include "platform/logger/LogFields.h"
#include "platform/logger/VYXLogger.h"
#include "repository/ControlFiles.h"
#include "repository/RepositorySession.h"
#include "restorable/KnownModules.h"
#include "restore/FetchAhead.h"
#include "verify/ControlFileFaults.h"
#include "verify/EntryCheck.h"

#include <QDir>
#include <QFile>
#include <QThread>

#include <algorithm>

using Outcome::Code;

namespace {

QString absent(const QString &entry)
{
    return QString("Missing: the repository does not hold '%1'").arg(entry);
}

} // namespace

VerifyOperation::VerifyOperation(const OperationContext &context, bool full) : context(context), full(full)
{
    if (context.repository) {
        session = std::make_unique<RepositorySession>(context.repository, context.waiter);
    }
}

VerifyOperation::~VerifyOperation() = default;

bool VerifyOperation::run()
{
    if (!session) {
        context.report.end(Code::NoRepository);
        return false;
    }
    auto stored = StoredItems::fetch(context, *session);
    if (!stored) {
        return false;
    }
    reportState(*stored);
    const QMap<QString, QString> lineFaults = faultsOfLines(*stored);
    if (!stored->state.unknown.isEmpty() || !lineFaults.isEmpty()) {
        dropUncertain(*stored);
    }
    if (!stored->entries) {
        lookForEntries(stored->items);
    }
    lookForControlFiles(*stored, lineFaults);
    dropMissing(stored->items);
    quint64 bytes = 0;
    for (const StoredItem &item : std::as_const(stored->items)) {
        bytes += item.bytes();
    }
    context.report.enter(OperationReport::Phase::Checking, bytes);
    if (full) {
        checkContents(stored->items);
    } else {
        for (const StoredItem &item : std::as_const(stored->items)) {
            context.report.noteSound(item.bytes());
        }
    }
    reportLeftOver(*stored);
    if (context.isBrokenOff("verify")) {
        return false;
    }
    if (session->lacksAnswers()) {
        context.report.end(Code::Unreachable);
        return false;
    }
    if (context.report.hasFailures()) {
        context.report.end(Code::Damaged);
    }
    return true;
}

/// Control files that could not be read, and lines that are none.
void VerifyOperation::reportState(const StoredItems &stored)
{
    for (const EntryFailure &failure : stored.state.failures) {
        context.report.noteFailed({failure.module, failure.item, failure.text});
    }
    for (const FailedItem &item : stored.refused) {
        context.report.noteFailed(item);
    }
    for (const StoredItem &item : stored.items) {
        if (stored.entries && !stored.entries->contains(item.entry)) {
            missing.insert(item.entry, absent(item.entry));
        }
    }
}

/// What is wrong with the module's checksum file; one without items needs none.
QString VerifyOperation::faultOfLines(const StoredItems &stored, const QString &module) const
{
    const QString entry = ItemNames::checksumFileName(module);
    if (stored.state.without.contains(module)) {
        const RestorableObject *const object = context.modules.findObject(module);
        const bool hasItems = object != nullptr ? object->hasItems() : KnownModules::isInstalled(module);
        return hasItems ? absent(entry) : QString();
    }
    return stored.state.lines.contains(module)
               ? ControlFileFaults::ofChecksumFile(DevicePaths::fetched(entry),
                                                   stored.state.lines.value(module).size())
               : QString();
}

QMap<QString, QString> VerifyOperation::faultsOfLines(const StoredItems &stored) const
{
    QMap<QString, QString> faults;
    for (const QString &module : stored.state.listed + stored.state.gone) {
        if (const QString fault = faultOfLines(stored, module); !fault.isEmpty()) {
            faults.insert(module, fault);
        }
    }
    return faults;
}

/// Which entry a plain file has follows from the lines of all modules.
void VerifyOperation::dropUncertain(StoredItems &stored) const
{
    stored.items.removeIf([this](const StoredItem &item) {
        const bool uncertain = item.item.getKind() == FileItem;
        if (uncertain) {
            logWarning("'%1' of module '%2' is not checked: where the repository holds it is not known",
                       item.item.getPath(), item.item.getModule());
            context.report.noteSkipped();
        }
        return uncertain;
    });
    stored.entries.reset();
}

void VerifyOperation::lookForEntries(QList<StoredItem> &items)
{
    for (StoredItem &item : items) {
        session->submit({RepositoryRequest::Look, item.entry, {}}, [&](const RequestOutcome &outcome) {
            item.size = outcome.size;
            if (outcome.kind == RequestOutcome::Absent) {
                missing.insert(item.entry, absent(item.entry));
            } else if (!outcome.stored()) {
                missing.insert(item.entry, outcome.text);
            }
        });
    }
    session->waitForRequests();
}

/// Without its version and checksum files nothing of a module is restored.
void VerifyOperation::lookForControlFiles(const StoredItems &stored, const QMap<QString, QString> &lineFaults)
{
    ControlFiles files(*session);
    const QStringList modules = stored.state.listed + stored.state.gone;
    for (const QString &module : modules) {
        files.askForVersion(module);
    }
    files.fetch();
    const auto note = [this](const QString &module, const QString &entry, const QString &fault) {
        if (!fault.isEmpty() && !context.waiter.mustEnd()) {
            context.report.noteFailed({module, entry, fault});
        }
    };
    for (const QString &module : modules) {
        const QString version = ItemNames::versionFileName(module);
        const RequestOutcome outcome = files.outcome(version);
        note(module, version,
             outcome.kind == RequestOutcome::Absent ? absent(version)
             : outcome.stored() ? ControlFileFaults::ofVersionFile(DevicePaths::fetched(version))
                                : outcome.text);
        note(module, ItemNames::checksumFileName(module), lineFaults.value(module));
        const QString attributes = ItemNames::attributesFileName(module);
        note(module, attributes, ControlFileFaults::ofAttributesFile(DevicePaths::fetched(attributes)));
    }
}

void VerifyOperation::dropMissing(QList<StoredItem> &items)
{
    items.removeIf([this](const StoredItem &item) {
        const QString why = missing.value(item.entry);
        if (!why.isEmpty() && !context.waiter.mustEnd()) {
            noteDamaged(item, why);
        }
        return !why.isEmpty();
    });
}

void VerifyOperation::noteDamaged(const StoredItem &item, const QString &why)
{
    const QString module = item.item.getModule();
    const LogFields fields(module, item.item.getPath());
    damagedItems << ItemIdentity(module, item.identity);
    logError("Damaged in the repository: '%1' of module '%2': %3", item.item.getPath(), module, why);
    context.report.noteFailed({module, item.item.getPath(), why}, item.bytes());
}

/// As many at a time as there are processors, while the next ones are being fetched.
void VerifyOperation::checkContents(const QList<StoredItem> &items)
{
    const QString place = DevicePaths::fetched("verify");
    QDir().mkpath(place);
    QList<PlannedItem> planned;
    for (const StoredItem &item : items) {
        const QString path = QString("%1/%2").arg(place, QString::number(planned.size()));
        planned << PlannedItem{item.item, item.digest, item.entry, path, {}};
    }
    FetchAhead fetcher(*session);
    fetcher.begin(planned);
    const qsizetype atOnce = std::max(QThread::idealThreadCount(), 1);
    for (qsizetype begun = 0; begun < items.size() && !context.waiter.mustEnd() && !session->lacksAnswers();
         begun += atOnce) {
        const QList<PlannedItem> batch = planned.mid(begun, atOnce);
        context.report.setModules({items.at(begun).item.getModule()});
        fetcher.require(batch);
        QList<EntryCheck> checks;
        for (qsizetype number = 0; number < batch.size(); ++number) {
            const StoredItem &item = items.at(begun + number);
            if (fetcher.isFetched(batch.at(number))) {
                checks << EntryCheck{item, batch.at(number).source};
            } else if (!context.waiter.mustEnd() && !session->lacksAnswers()) {
                noteDamaged(item, "It could not be fetched: " + fetcher.fault(batch.at(number)));
            }
        }
        checkEntries(checks, context.waiter);
        for (const EntryCheck &check : std::as_const(checks)) {
            take(check);
        }
        for (const PlannedItem &one : batch) {
            fetcher.release(one);
        }
    }
}

void VerifyOperation::take(const EntryCheck &check)
{
    const quint64 bytes = check.item.bytes();
    if (context.waiter.mustEnd()) {
        return;
    }
    context.report.advance(bytes);
    if (!check.isChecked) {
        const LogFields fields(check.item.item.getModule(), check.item.item.getPath());
        logWarning("'%1' of module '%2' was read to its end, and not tried: there is no room for it",
                   check.item.item.getPath(), check.item.item.getModule());
        context.report.noteSkipped(bytes);
    } else if (check.fault.isEmpty()) {
        context.report.noteSound(bytes);
    } else {
        noteDamaged(check.item, check.fault);
    }
}

void VerifyOperation::reportLeftOver(const StoredItems &stored) const
{
    if (!stored.entries) {
        return;
    }
    const QSet<QString> known = stored.knownEntries();
    QStringList left;
    for (auto entry = stored.entries->keyBegin(); entry != stored.entries->keyEnd(); ++entry) {
        if (!known.contains(*entry)) {
            left << *entry;
        }
    }
    context.report.setLeftOver(left);
}
