#include "save/UploadPlan.h"
#include "tests/support/DataTable.h"

#include <QRandomGenerator>

namespace {

constexpr quint32 casesPerRow = 250;

/// What a repository holds: a digest for the content of each entry. Modules that are not listed do not count.
struct Store
{
    QMap<QString, QString> entries;
    LinesByModule files;
    QSet<QString> listed;
};

/// An upload to the store by a plan, with the steps of the real one.
struct ModelUpload
{
    Store &store;
    const LinesByModule &wanted; ///< of each installed module
    QRandomGenerator &random;
    int faults = 0;     ///< per cent of the requests that fail
    int stepsLeft = -1; ///< then it is cut off
    QSet<QString> unknown = {};
    UploadPlan plan = makePlan();
    QSet<QString> unfinished = unknown;
    bool strays = false; ///< a request failed that may have left an entry without a line
    QString untrue = {}; ///< the first untrue line
    QStringList steps = {};

    /// No listed file has a digest that its entry has not. Only of a module that is gone it may be otherwise:
    /// its data are not restored on this device, and others take its entries.
    void check()
    {
        LinesByModule listed = store.files;
        listed.removeIf([&](const auto &module) { return !store.listed.contains(module.key()); });
        const SavedEntries names(listed);
        for (auto module = wanted.cbegin(); module != wanted.cend() && untrue.isEmpty(); ++module) {
            for (const ChecksumLine &line : listed.value(module.key())) {
                const QString entry = names.entry(module.key(), line);
                if (!line.digest().isEmpty() && store.entries.value(entry) != line.digest()) {
                    untrue = module.key() + ":" + line.key() + " as " + entry;
                }
            }
        }
    }

    /// Carry out a change of the store, which may fail in any way.
    SendResult change(const QString &what, const std::function<void()> &carryOut)
    {
        const bool fails = random.bounded(100) < faults;
        const bool known = fails && random.bounded(2) == 0;
        if ((!fails || (!known && random.bounded(2) == 0)) && stepsLeft != 0) {
            --stepsLeft;
            carryOut();
            steps << what;
            check();
        }
        return !fails ? SendResult::Stored : (known ? SendResult::Untouched : SendResult::Unknown);
    }

    /// Send checksum files until the plan has no next ones.
    void sendFiles(const std::function<QList<ChecksumSend>()> &next, bool held)
    {
        for (auto files = next(); !files.isEmpty(); files = next()) {
            for (const ChecksumSend &file : std::as_const(files)) {
                const auto result =
                    change("file " + file.module, [&] { store.files[file.module] = file.lines; });
                plan.note(file, result);
                if (result != SendResult::Stored) {
                    unfinished << file.module;
                }
                if (result != SendResult::Stored && held) {
                    plan.block(file.module);
                }
            }
        }
    }

    /// Those that may be sent, before any is.
    bool isReady(const PlannedSend &send)
    {
        const QString entry = send.entry;
        const bool confirms = !unknown.isEmpty() && send.item.getKind() == FileItem;
        if (plan.isBlocked(send.item.getModule()) ||
            (confirms && (entry != send.heldAs || store.entries.value(entry) != send.heldDigest))) {
            return false;
        }
        if (confirms) {
            plan.confirm(send);
        }
        return !plan.isFrozen(send);
    }

    void sendItem(const PlannedSend &send)
    {
        const QString entry = send.entry;
        const bool lost = random.bounded(2) == 0;
        const auto result = change("send " + entry, [&] { store.entries[entry] = send.line.digest(); });
        if (result == SendResult::Unknown && lost && stepsLeft != 0) {
            store.entries.remove(entry);
        }
        strays = strays || result == SendResult::Unknown;
        plan.note(send, result);
    }

    void sendFinalFiles()
    {
        sendFiles([this] { return plan.nextFinalFiles(unfinished); }, false);
    }

    UploadPlan makePlan() const
    {
        LinesByModule previous = store.files;
        LinesByModule current = wanted;
        QSet<QString> entering;
        for (const QString &module : store.files.keys()) {
            const bool listed = store.listed.contains(module);
            if (unknown.contains(module) || (!listed && !wanted.contains(module))) {
                previous.remove(module);
                current.remove(module);
            } else if (!listed) {
                previous[module].removeIf([](const ChecksumLine &line) { return line.isPlainFile(); });
            }
            if (!listed) {
                entering << module;
            }
        }
        return {previous, current, entering};
    }

    void run()
    {
        check();
        if (!unknown.isEmpty()) {
            plan.blockNames();
        }
        sendFiles([this] { return plan.nextHeldFiles(); }, true);
        for (const QString &module : plan.closeHeldFiles()) {
            unfinished << module;
        }
        QList<PlannedSend> ready;
        for (const QString &module : wanted.keys()) {
            std::ranges::copy_if(plan.sends(module), std::back_inserter(ready),
                                 [this](const PlannedSend &send) { return isReady(send); });
        }
        for (const PlannedSend &send : std::as_const(ready)) {
            sendItem(send);
        }
        if (!plan.settle()) {
            return;
        }
        QList<EntryRemoval> failing;
        for (const EntryRemoval &removal : plan.takeRemovals()) {
            const QString entry = removal.entry;
            if (change("remove " + entry, [&] { store.entries.remove(entry); }) != SendResult::Stored) {
                strays = true;
                failing << removal;
            }
        }
        plan.noteRemovalsFailed(failing);
        sendFinalFiles();
        QSet<QString> list = store.listed;
        for (const QString &module : unknown.isEmpty() ? store.files.keys() : QStringList()) {
            if (!wanted.contains(module)) {
                list.remove(module);
            } else if (!unfinished.contains(module)) {
                list << module;
            }
        }
        if (change("list", [&] { store.listed = list; }) == SendResult::Stored) {
            plan.noteListed(list.values());
            sendFinalFiles();
        }
    }
};

/// Everything is as wanted; strays are what a module that is gone had, or a failed request has left.
bool isComplete(const Store &store, const LinesByModule &wanted, bool strays)
{
    const SavedEntries names(wanted);
    QMap<QString, QString> entries = strays ? store.entries : QMap<QString, QString>();
    bool complete = true;
    for (auto module = wanted.cbegin(); module != wanted.cend(); ++module) {
        complete &= store.listed.contains(module.key()) && store.files.value(module.key()) == *module;
        for (const ChecksumLine &line : *module) {
            entries[names.entry(module.key(), line)] = line.digest();
        }
    }
    return complete && store.entries == entries;
}

/// Items with keys that collide with each other in every way, many of them as they were before.
ChecksumLines randomLines(const QString &module, const ChecksumLines &before, QRandomGenerator &random)
{
    ChecksumLines lines = {ChecksumLine::database(module + "/d.data", {}),
                           ChecksumLine::directory(module + "/conf.tar", {}, "high"),
                           ChecksumLine::directory(module + "/a/b.tar", {}, "high"),
                           ChecksumLine::directory(module + "/a++b.tar", {}, "high")};
    for (const char *key : {"x", "b/x", "a/x", "a/b/x", "conf/s", "b++d.dump.gz", "a++conf.tar.gz", "c.cksum",
                            "a++x", "a++b++x", "d.dump.gz", "a/d.data"}) {
        lines << ChecksumLine::file(key, {}, false, "high");
    }
    for (ChecksumLine &line : lines) {
        const auto old = std::ranges::find(before, line.identity(), &ChecksumLine::identity);
        const bool known = old != before.cend();
        const bool stays = random.bounded(4) > 0;
        if (stays && known && random.bounded(3) > 0) {
            line = *old;
        } else if (stays ? known : random.bounded(3) == 0) {
            line.setDigest(module + ":" + line.key() + "=" + QString::number(random.generate()));
        }
    }
    lines.removeIf([](const ChecksumLine &line) { return line.digest().isEmpty(); });
    return lines;
}

} // namespace

class tst_uploadplan : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyStepIsTrue_data()
    {
        columns<bool, int, bool>("cut", "faults", "unknown");
        row("undisturbed", false, 0, false);
        row("cut off", true, 0, false);
        row("requests fail", false, 15, false);
        row("a module is not known", false, 10, true);
    }
    void everyStepIsTrue()
    {
        QFETCH(bool, cut);
        QFETCH(int, faults);
        QFETCH(bool, unknown);
        for (quint32 seed = 0; seed < casesPerRow; ++seed) {
            QRandomGenerator random(seed);
            Store store;
            LinesByModule before;
            LinesByModule current;
            for (const QString &module : QStringList{"a", "b", "c", "d"}.mid(0, random.bounded(2, 5))) {
                store.files[module];
                const bool enters = random.bounded(8) == 0;
                if (!enters) {
                    before[module] = randomLines(module, {}, random);
                }
                if (enters || random.bounded(8) > 0) {
                    current[module] = randomLines(module, before.value(module), random);
                }
            }
            ModelUpload first{store, before, random};
            first.run();
            const int steps = cut ? random.bounded(25) : -1;
            const qsizetype at = random.bounded(int(store.files.size()));
            const QStringList left = store.files.keys().mid(at, unknown ? 1 : 0);
            ModelUpload second{store, current, random, faults, steps, {left.cbegin(), left.cend()}};
            second.run();
            ModelUpload third{store, current, random};
            third.run();
            const bool strays = second.strays || before.keys() != current.keys();
            const QString wrong = first.untrue + second.untrue + third.untrue;
            QVERIFY2(wrong.isEmpty() && isComplete(store, current, strays),
                     qPrintable(QString("case %1: %2 (%3)")
                                    .arg(seed)
                                    .arg(wrong, (second.steps + third.steps).join("; "))));
        }
    }
};

QTEST_GUILESS_MAIN(tst_uploadplan)
#include "tst_uploadplan.moc"
