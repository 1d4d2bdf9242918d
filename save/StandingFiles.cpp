#include "save/StandingFiles.h"

#include <algorithm>
#include <functional>
#include <utility>

namespace {

using Item = std::pair<QString, QString>; // key and kind

Item itemOf(const ChecksumLine &line)
{
    return {line.key(), line.kind()};
}

QSet<Item> itemsOf(const ChecksumLines &lines)
{
    QSet<Item> items;
    for (const ChecksumLine &line : lines) {
        items << itemOf(line);
    }
    return items;
}

/// The lines, without digest where what they say may be untrue.
ChecksumLines trueLines(ChecksumLines lines, const std::function<bool(const ChecksumLine &)> &isTrue)
{
    for (ChecksumLine &line : lines) {
        if (!line.digest().isEmpty() && !isTrue(line)) {
            line.setDigest({});
        }
    }
    return lines;
}

} // namespace

StandingFiles::StandingFiles(const LinesByModule &standing, QSet<QString> enteringModules,
                             QSet<QString> leavingModules)
    : entering(std::move(enteringModules)), leaving(std::move(leavingModules))
{
    for (auto module = standing.cbegin(); module != standing.cend(); ++module) {
        files.insert(module.key(), {module.value()});
    }
}

StandingFiles::Names StandingFiles::namesOnTheWay(const LinesByModule &target) const
{
    LinesByModule fewest;
    LinesByModule most;
    for (auto module = files.cbegin(); module != files.cend(); ++module) {
        QList<ChecksumLines> possible = module.value();
        if (target.contains(module.key())) {
            possible << target.value(module.key());
        }
        ChecksumLines common = possible.first();
        ChecksumLines &all = most[module.key()];
        QSet<Item> known;
        for (const ChecksumLines &lines : std::as_const(possible)) {
            const QSet<Item> items = itemsOf(lines);
            common.removeIf([&](const ChecksumLine &line) { return !items.contains(itemOf(line)); });
            for (const ChecksumLine &line : lines) {
                if (!known.contains(itemOf(line))) {
                    known << itemOf(line);
                    all << line;
                }
            }
        }
        if (!entering.contains(module.key()) && !leaving.contains(module.key())) {
            fewest.insert(module.key(), common);
        }
    }
    return {SavedEntries(fewest), SavedEntries(most)};
}

QList<ChecksumSend> StandingFiles::next(const LinesByModule &target,
                                        const QHash<QString, QString> &held) const
{
    const Names names = namesOnTheWay(target);
    const auto truth = [&](const QString &module, const ChecksumLines &lines) {
        return trueLines(lines, [&](const ChecksumLine &line) {
            const QString entry = names.most.entry(module, line);
            return entry == names.fewest.entry(module, line) && held.value(entry) == line.digest();
        });
    };
    QList<ChecksumSend> withdrawals;
    bool barred = false;
    for (auto module = files.cbegin(); module != files.cend(); ++module) {
        for (const ChecksumLines &lines : module.value()) {
            const ChecksumSend send = {module.key(), truth(module.key(), lines)};
            if (send.lines != lines && !leaving.contains(module.key())) {
                withdrawals << send;
                barred = barred || !target.contains(module.key());
            }
        }
    }
    LinesByModule sameItems = target;
    sameItems.removeIf(
        [&](const auto &module) { return itemsOf(lines(module.key())) != itemsOf(module.value()); });
    if (barred && sameItems.size() < target.size()) {
        return next(sameItems, held);
    }
    if (barred || !withdrawals.isEmpty()) {
        return barred ? QList<ChecksumSend>() : withdrawals;
    }
    QList<ChecksumSend> sends;
    for (auto module = target.cbegin(); module != target.cend(); ++module) {
        const ChecksumSend send = {module.key(), truth(module.key(), module.value())};
        if (!isCertainly(send.module, send.lines)) {
            sends << send;
        }
    }
    return sends;
}

void StandingFiles::note(const ChecksumSend &send, SendResult result)
{
    if (result == SendResult::Stored) {
        files[send.module] = {send.lines};
    } else if (result == SendResult::Unknown) {
        files[send.module] << send.lines;
    }
}

void StandingFiles::noteListed(const QStringList &modules)
{
    const QSet<QString> listed(modules.cbegin(), modules.cend());
    const QSet<QString> left = std::exchange(leaving, leaving & listed) - listed;
    files.removeIf([&](const auto &module) { return left.contains(module.key()); });
    entering -= listed;
}

QSet<QString> StandingFiles::promised(const QStringList &modules) const
{
    const Names names = namesOnTheWay({});
    QSet<QString> entries;
    for (const QString &module : modules) {
        for (const ChecksumLines &lines : files.value(module)) {
            for (const ChecksumLine &line : lines) {
                if (!line.digest().isEmpty()) {
                    entries << names.fewest.entry(module, line) << names.most.entry(module, line);
                }
            }
        }
    }
    return entries;
}
