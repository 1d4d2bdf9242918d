#include "save/UploadPlan.h"

#include <algorithm>
#include <utility>

namespace {

/// The entry that an item would have if no other item claimed it.
QString claimOf(const QString &module, const ChecksumLine &line)
{
    return SavedEntries::possibleNames(module, line).value(0);
}

QString itemName(const QString &module, const ChecksumLine &line)
{
    return module + "/" + line.identity();
}

ChecksumLine withoutDigest(ChecksumLine line)
{
    line.setDigest({});
    return line;
}

LinesByModule without(LinesByModule lines, const QSet<QString> &modules)
{
    lines.removeIf([&](const auto &module) { return modules.contains(module.key()); });
    return lines;
}

QSet<QString> namesOf(const LinesByModule &lines)
{
    return {lines.keyBegin(), lines.keyEnd()};
}

LinesByModule united(LinesByModule lines, const LinesByModule &more)
{
    for (auto module = more.cbegin(); module != more.cend(); ++module) {
        ChecksumLines &all = lines[module.key()];
        QSet<QString> keys;
        for (const ChecksumLine &line : std::as_const(all)) {
            keys << line.identity();
        }
        for (const ChecksumLine &line : module.value()) {
            if (!keys.contains(line.identity())) {
                keys << line.identity();
                all << line;
            }
        }
    }
    return lines;
}

} // namespace

UploadPlan::UploadPlan(LinesByModule previousOnes, const LinesByModule &currentLines, QSet<QString> entering)
    : previousLines(std::move(previousOnes)), previous(without(previousLines, entering)),
      current(currentLines), meanwhile(united(previousLines, currentLines)), before(previousLines),
      wanted(currentLines),
      files(previousLines, entering, namesOf(without(previousLines, namesOf(currentLines))))
{
    for (const LinesByModule *state : {&std::as_const(previousLines), &current.lines()}) {
        for (auto module = state->cbegin(); module != state->cend(); ++module) {
            for (const ChecksumLine &line : module.value()) {
                claims[claimOf(module.key(), line)] << itemName(module.key(), line);
            }
        }
    }
    for (auto module = previousLines.cbegin(); module != previousLines.cend(); ++module) {
        for (const ChecksumLine &line : module.value()) {
            if (!line.digest().isEmpty()) {
                held.insert(previous.entry(module.key(), line), line.digest());
            }
        }
    }
    compare();
}

/// An item whose entry gets another name, if only meanwhile, is sent again, as if it were new.
void UploadPlan::compare()
{
    const LinesByModule &all = current.lines();
    for (auto module = all.cbegin(); module != all.cend(); ++module) {
        const ChecksumLines before = previousLines.value(module.key());
        ChecksumEntries entries = compareChecksumLines(module.value(), before, true);
        QHash<QString, QString> namesBefore;
        for (const ChecksumLine &line : before) {
            namesBefore.insert(line.identity(), previous.entry(module.key(), line));
        }
        for (const ChecksumLine &line : module.value()) {
            ChecksumStatus &status = entries[line.identity()].status;
            const auto name = namesBefore.constFind(line.identity());
            const bool moves =
                name != namesBefore.constEnd() && (name.value() != current.entry(module.key(), line) ||
                                                   name.value() != meanwhile.entry(module.key(), line));
            status = status == Deleted || moves ? New : status;
        }
        statuses.insert(module.key(), entries);
    }
}

void UploadPlan::block(const QString &module)
{
    blockedModules << module;
    for (const LinesByModule *state : {&std::as_const(previousLines), &current.lines()}) {
        for (const ChecksumLine &line : state->value(module)) {
            frozenClaims << claimOf(module, line);
        }
    }
}

void UploadPlan::confirm(const PlannedSend &send)
{
    confirmedClaims << claimOf(send.item.getModule(), send.line);
}

bool UploadPlan::isFrozen(const QString &module, const ChecksumLine &line) const
{
    const QString claim = claimOf(module, line);
    const bool comesOrGoes =
        before.find(module, line.identity()) == nullptr || wanted.find(module, line.identity()) == nullptr;
    const bool unconfirmed = line.isPlainFile() && !confirmedClaims.contains(claim);
    return (namesBlocked && (comesOrGoes || unconfirmed)) || blockedModules.contains(module) ||
           frozenClaims.contains(claim);
}

bool UploadPlan::hasChanges(const QString &module) const
{
    const ChecksumEntries entries = statuses.value(module);
    return std::any_of(entries.cbegin(), entries.cend(),
                       [](const ChecksumEntry &entry) { return entry.status != Same; });
}

ChecksumLines UploadPlan::heldLines(const QString &module) const
{
    const ChecksumEntries entries = statuses.value(module);
    ChecksumLines lines;
    for (const ChecksumLine &line : current.lines().value(module)) {
        if (namesBlocked && before.find(module, line.identity()) == nullptr) {
            continue;
        }
        lines << (entries.value(line.identity()).status == Same ? line : withoutDigest(line));
    }
    for (const ChecksumLine &line : previousLines.value(module)) {
        if (wanted.find(module, line.identity()) == nullptr) {
            lines << withoutDigest(line);
        }
    }
    return lines;
}

QList<ChecksumSend> UploadPlan::nextHeldFiles() const
{
    LinesByModule target;
    for (const QString &module : current.lines().keys()) {
        if (hasChanges(module) && !isBlocked(module)) {
            target.insert(module, heldLines(module));
        }
    }
    return files.next(target, held);
}

QStringList UploadPlan::closeHeldFiles()
{
    QStringList barred;
    for (const QString &module : current.lines().keys()) {
        if (hasChanges(module) && !isBlocked(module) && !files.isCertainly(module, heldLines(module))) {
            block(module);
            barred << module;
        }
    }
    promised = files.promised(current.lines().keys());
    for (const QString &module : current.lines().keys()) {
        for (const PlannedSend &send : sends(module)) {
            if (promised.contains(send.entry)) {
                frozenClaims << claimOf(module, send.line);
            }
        }
    }
    return barred;
}

QList<ChecksumSend> UploadPlan::nextFinalFiles(const QSet<QString> &kept) const
{
    LinesByModule target = settled;
    target.removeIf(
        [&](const auto &module) { return isBlocked(module.key()) || kept.contains(module.key()); });
    return files.next(target, held);
}

QList<PlannedSend> UploadPlan::sends(const QString &module) const
{
    QList<PlannedSend> sends;
    const ChecksumEntries entries = statuses.value(module);
    for (const ChecksumLine &line : current.lines().value(module)) {
        const ChecksumStatus status = entries.value(line.identity()).status;
        const auto item = SavedItem::parse(module, line);
        if (!item || (status != New && status != Updated)) {
            continue;
        }
        const ChecksumLine *saved = before.find(module, line.identity());
        PlannedSend send = {*item, line, current.entry(module, line), {}, {}, status == New};
        if (saved != nullptr && !saved->digest().isEmpty()) {
            send.heldAs = previous.entry(module, *saved);
            send.heldDigest = saved->digest();
        }
        sends << send;
    }
    return sends;
}

void UploadPlan::note(const PlannedSend &send, SendResult result, const QString &digest)
{
    switch (result) {
    case SendResult::Stored:
        if (send.line.isPlainFile() && !digest.isEmpty()) {
            stored.insert(itemName(send.item.getModule(), send.line), digest);
        }
        held.insert(send.entry, storedLine(send.item.getModule(), send.line).digest());
        return;
    case SendResult::Unknown:
        held.remove(send.entry);
        break;
    case SendResult::Untouched:
        break;
    }
    frozenClaims << claimOf(send.item.getModule(), send.line);
}

/// The line with the digest of what was stored of the item.
ChecksumLine UploadPlan::storedLine(const QString &module, ChecksumLine line) const
{
    line.setDigest(stored.value(itemName(module, line), line.digest()));
    return line;
}

/// The line of an item that stays as it was saved: with the digest of what its entry holds. When that is not
/// known the item keeps its name taken as long as others want it.
std::optional<ChecksumLine> UploadPlan::keptLine(const QString &module, const ChecksumLine &before,
                                                 const ChecksumLine *wanted) const
{
    const QString digest = held.value(previous.entry(module, before));
    if (digest == before.digest()) {
        return before;
    }
    if (wanted != nullptr && digest == storedLine(module, *wanted).digest()) {
        return storedLine(module, *wanted);
    }
    const bool claimed = namesBlocked || claims.value(claimOf(module, before)).size() > 1;
    return claimed ? std::optional(withoutDigest(before)) : std::nullopt;
}

ChecksumLines UploadPlan::settledLines(const QString &module) const
{
    ChecksumLines lines;
    for (const ChecksumLine &line : current.lines().value(module)) {
        if (!isFrozen(module, line)) {
            lines << storedLine(module, line);
        }
    }
    for (const ChecksumLine &line : previousLines.value(module)) {
        if (isFrozen(module, line)) {
            if (const auto kept = keptLine(module, line, wanted.find(module, line.identity()))) {
                lines << *kept;
            }
        }
    }
    return lines;
}

bool UploadPlan::settle()
{
    settled.clear();
    for (const QString &module : current.lines().keys()) {
        settled.insert(module, isBlocked(module) ? files.lines(module) : settledLines(module));
    }
    return withdrawUntrueDigests();
}

/// No line may promise what its entry does not hold. The lines stay, and with them the entries of others;
/// those of a blocked module cannot change.
bool UploadPlan::withdrawUntrueDigests()
{
    const SavedEntries names(settled);
    bool possible = true;
    for (auto module = settled.begin(); module != settled.end(); ++module) {
        for (ChecksumLine &line : *module) {
            const QString entry = names.entry(module.key(), line);
            if (!entry.isEmpty() && !line.digest().isEmpty() && held.value(entry) != line.digest()) {
                line.setDigest({});
                possible = possible && !isBlocked(module.key());
            }
        }
    }
    return possible;
}

QList<EntryRemoval> UploadPlan::takeRemovals()
{
    const QSet<QString> used = SavedEntries(settled).names() + promised;
    QList<EntryRemoval> gone;
    for (auto module = settled.cbegin(); module != settled.cend(); ++module) {
        for (const ChecksumLine &line : previousLines.value(module.key())) {
            if (namesBlocked && line.isPlainFile()) {
                continue;
            }
            for (const QString &entry : possibleEntries(module.key(), line)) {
                if (!entry.isEmpty() && !used.contains(entry)) {
                    gone << EntryRemoval{module.key(), line, entry};
                    held.remove(entry);
                }
            }
        }
    }
    return gone;
}

/// An item whose line has no digest was being replaced or moved: its entry may still have another name.
QStringList UploadPlan::possibleEntries(const QString &module, const ChecksumLine &line) const
{
    const QString entry = previous.entry(module, line);
    return line.digest().isEmpty() ? SavedEntries::possibleNames(module, line) : QStringList{entry};
}

void UploadPlan::noteRemovalsFailed(const QList<EntryRemoval> &removals)
{
    const LinesByModule unchanged = settled;
    for (const EntryRemoval &removal : removals) {
        settled[removal.module] << withoutDigest(removal.line);
    }
    settled = united({}, settled);
    const LinesByModule with = settled;
    if (withdrawUntrueDigests() && settled == with) {
        return;
    }
    // Not with all of these lines: with as many as possible.
    settled = unchanged;
    if (const qsizetype half = removals.size() / 2; half > 0) {
        noteRemovalsFailed(removals.first(half));
        noteRemovalsFailed(removals.sliced(half));
    }
}
