#include "save/UploadPlan.h"

#include <algorithm>
#include <utility>

namespace {

/// The entry that an item would have if no other item claimed it.
QString claimOf(const QString &module, const ChecksumLine &line)
{
    if (line.isPlainFile()) {
        return ItemNames::flattened(line.key());
    }
    const auto item = SavedItem::parse(module, line);
    return item ? item->artefact() : QString();
}

QString itemName(const QString &module, const ChecksumLine &line)
{
    return module + "/" + line.key();
}

ChecksumLine withoutDigest(ChecksumLine line)
{
    line.setDigest({});
    return line;
}

const ChecksumLine *findLine(const ChecksumLines &lines, const QString &key)
{
    const auto found = std::find_if(lines.cbegin(), lines.cend(),
                                    [&](const ChecksumLine &line) { return line.key() == key; });
    return found == lines.cend() ? nullptr : &*found;
}

} // namespace

UploadPlan::UploadPlan(LinesByModule previousLines, LinesByModule currentLines)
    : previous(std::move(previousLines)), current(std::move(currentLines))
{
    for (const SavedEntries *state : {&previous, &current}) {
        const LinesByModule &all = state->lines();
        for (auto module = all.cbegin(); module != all.cend(); ++module) {
            for (const ChecksumLine &line : module.value()) {
                claims[claimOf(module.key(), line)] << itemName(module.key(), line);
            }
        }
    }
    const LinesByModule &before = previous.lines();
    for (auto module = before.cbegin(); module != before.cend(); ++module) {
        for (const ChecksumLine &line : module.value()) {
            if (!line.digest().isEmpty()) {
                held.insert(previous.entry(module.key(), line).text(), line.digest());
            }
        }
    }
    compare();
}

/// An item whose entry gets another name is sent again, as if it were new.
void UploadPlan::compare()
{
    const LinesByModule &all = current.lines();
    for (auto module = all.cbegin(); module != all.cend(); ++module) {
        const ChecksumLines before = previous.lines().value(module.key());
        ChecksumEntries entries = compareChecksumLines(module.value(), before, true);
        QHash<QString, QString> namesBefore;
        for (const ChecksumLine &line : before) {
            namesBefore.insert(line.key(), previous.entry(module.key(), line).text());
        }
        for (const ChecksumLine &line : module.value()) {
            ChecksumStatus &status = entries[line.key()].status;
            const auto name = namesBefore.constFind(line.key());
            const bool moves =
                name != namesBefore.constEnd() && name.value() != current.entry(module.key(), line).text();
            status = status == Deleted || moves ? New : status;
        }
        statuses.insert(module.key(), entries);
    }
}

void UploadPlan::block(const QString &module)
{
    blockedModules << module;
    for (const SavedEntries *state : {&previous, &current}) {
        for (const ChecksumLine &line : state->lines().value(module)) {
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
    const bool unconfirmed = plainFilesBlocked && line.isPlainFile() && !confirmedClaims.contains(claim);
    return unconfirmed || blockedModules.contains(module) || frozenClaims.contains(claim);
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
    const ChecksumLines wanted = current.lines().value(module);
    ChecksumLines lines;
    for (const ChecksumLine &line : wanted) {
        lines << (entries.value(line.key()).status == Same ? line : withoutDigest(line));
    }
    for (const ChecksumLine &line : previous.lines().value(module)) {
        if (findLine(wanted, line.key()) == nullptr) {
            lines << withoutDigest(line);
        }
    }
    return lines;
}

QList<PlannedSend> UploadPlan::sends(const QString &module) const
{
    QList<PlannedSend> sends;
    const ChecksumEntries entries = statuses.value(module);
    for (const ChecksumLine &line : current.lines().value(module)) {
        const ChecksumStatus status = entries.value(line.key()).status;
        const auto item = SavedItem::parse(module, line);
        if (!item || (status != New && status != Updated)) {
            continue;
        }
        const ChecksumLine *before = findLine(previous.lines().value(module), line.key());
        PlannedSend send = {*item, line, current.entry(module, line), {}, {}, status == New};
        if (before != nullptr && !before->digest().isEmpty()) {
            send.heldAs = previous.entry(module, *before).text();
            send.heldDigest = before->digest();
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
        held.insert(send.entry.text(), storedLine(send.item.getModule(), send.line).digest());
        return;
    case SendResult::Unknown:
        held.remove(send.entry.text());
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
    const QString digest = held.value(previous.entry(module, before).text());
    if (digest == before.digest()) {
        return before;
    }
    if (wanted != nullptr && digest == storedLine(module, *wanted).digest()) {
        return storedLine(module, *wanted);
    }
    return claims.value(claimOf(module, before)).size() > 1 ? std::optional(withoutDigest(before))
                                                            : std::nullopt;
}

ChecksumLines UploadPlan::settledLines(const QString &module) const
{
    const ChecksumLines before = previous.lines().value(module);
    const ChecksumLines wanted = current.lines().value(module);
    ChecksumLines lines;
    for (const ChecksumLine &line : wanted) {
        if (!isFrozen(module, line)) {
            lines << storedLine(module, line);
        }
    }
    for (const ChecksumLine &line : before) {
        if (isFrozen(module, line)) {
            if (const auto kept = keptLine(module, line, findLine(wanted, line.key()))) {
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
        settled.insert(module, isBlocked(module) ? previous.lines().value(module) : settledLines(module));
    }
    return dropUntrueLines();
}

/// No line may promise what its entry does not hold. Dropping one can change the entries of others, so they
/// are looked at again; the line of a blocked module cannot be dropped.
bool UploadPlan::dropUntrueLines()
{
    bool changed = true;
    while (changed) {
        changed = false;
        const SavedEntries names(settled);
        for (auto module = settled.begin(); module != settled.end(); ++module) {
            const qsizetype untrue = module->removeIf([&](const ChecksumLine &line) {
                const QString entry = names.entry(module.key(), line).text();
                return !entry.isEmpty() && !line.digest().isEmpty() && held.value(entry) != line.digest();
            });
            if (untrue > 0 && isBlocked(module.key())) {
                return false;
            }
            changed = changed || untrue > 0;
        }
    }
    return true;
}

QList<EntryRemoval> UploadPlan::removals() const
{
    const QSet<QString> used = SavedEntries(settled).names();
    QList<EntryRemoval> gone;
    const LinesByModule &all = previous.lines();
    for (auto module = all.cbegin(); module != all.cend(); ++module) {
        for (const ChecksumLine &line : module.value()) {
            const ItemNames::EntryName entry = previous.entry(module.key(), line);
            if (!entry.name.isEmpty() && !used.contains(entry.text()) &&
                !(plainFilesBlocked && line.isPlainFile())) {
                gone << EntryRemoval{module.key(), line, entry};
            }
        }
    }
    return gone;
}

void UploadPlan::noteRemovalFailed(const EntryRemoval &removal)
{
    const LinesByModule before = settled;
    ChecksumLines &lines = settled[removal.module];
    if (findLine(lines, removal.line.key()) != nullptr) {
        return;
    }
    lines << withoutDigest(removal.line);
    const LinesByModule with = settled;
    if (!dropUntrueLines() || settled != with) {
        settled = before;
    }
}
