#pragma once

#include "tests/support/Jobs.h"

#include <QDirIterator>
#include <QFileInfo>
#include <QSet>

#include <sys/stat.h>

/// Holds a restore against what its preview, and one that is to change nothing, have said before.
class PreviewCheck
{
public:
    /// To be made before the restore.
    explicit PreviewCheck(const TestDevice &device)
        : data(device.path("data/VYXApplication/")), jobs(device), before(stamps()), items(jobs.preview()),
          dryRun(jobs.run("Restore", {{"dry_run", true}})), untouched(stamps() == before)
    {
        jobs.ended.clear();
    }

    /// What is otherwise, after the restore; empty for nothing. Where contents are damaged on the way, an
    /// item that was to change may have failed.
    QString fault(bool damaged)
    {
        const Jobs::End end = jobs.endOf();
        const QMap<QString, QByteArray> after = stamps();
        QStringList faults = untouched ? QStringList() : QStringList{"the preview has changed data"};
        QStringList expected;
        QSet<QString> changing;
        QSet<QString> kept;
        for (const PreviewedItem &one : items) {
            const QString name = one.module + "/" + one.item;
            const QString action = actionOn(name, before, after);
            if (one.action != "replace" && one.action != "create") {
                kept << (one.item.isEmpty() ? QString() : name);
                continue;
            }
            changing << pathOf(name, before, after);
            expected << one.action + "d " + name;
            if (action != one.action && !(damaged && end.failed().contains(name))) {
                faults << QString("'%1' was to be: %2, but was: %3").arg(name, one.action, action);
            }
        }
        for (const QString &name : std::as_const(kept)) {
            // Several lines can have one path.
            if (!changing.contains(pathOf(name, before, after)) && !actionOn(name, before, after).isEmpty()) {
                faults << QString("'%1' was to stay, but was: %2").arg(name, actionOn(name, before, after));
            }
        }
        expected.sort();
        QStringList done = end.changes();
        if (expected != dryRun.changes()) {
            faults << "announced " + expected.join(", ") + " but a dry run says " +
                          dryRun.changes().join(", ");
        }
        for (const QString &name : damaged ? expected : QStringList()) {
            done << (end.failed().contains(name.section(' ', 1)) ? QStringList{name} : QStringList());
        }
        done.sort();
        if (expected != done) {
            faults << "announced " + expected.join(", ") + " but done was " + done.join(", ");
        }
        faults += unannounced(after, changing);
        return faults.join('\n');
    }

private:
    using Stamps = QMap<QString, QByteArray>;

    /// Of all that is below the modules' data: it changes whenever something is put in its place.
    Stamps stamps() const
    {
        Stamps stamps;
        QDirIterator all(data, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                         QDirIterator::Subdirectories);
        while (all.hasNext()) {
            const QString path = all.next();
            struct stat status = {};
            if (!path.startsWith(data + "VYXSaveRestore") &&
                lstat(QFile::encodeName(path).constData(), &status) == 0) {
                const bool directory = S_ISDIR(status.st_mode);
                const auto changed = directory ? timespec() : status.st_mtim;
                stamps.insert(
                    path.mid(data.size()),
                    QString("%1 %2 %3").arg(status.st_ino).arg(changed.tv_sec).arg(changed.tv_nsec).toUtf8());
            }
        }
        return stamps;
    }

    /// The live path of an item, below the modules' data.
    static QString pathOf(const QString &name, const Stamps &before, const Stamps &after)
    {
        const QString database = name + ".data";
        return before.contains(database) || after.contains(database) ? database : name;
    }

    static QString actionOn(const QString &name, const Stamps &before, const Stamps &after)
    {
        const QString path = pathOf(name, before, after);
        if (before.value(path) == after.value(path)) {
            return {};
        }
        return !before.contains(path) ? "create" : after.contains(path) ? "replace" : "remove";
    }

    QStringList unannounced(const Stamps &after, const QSet<QString> &changing) const
    {
        QStringList faults;
        for (const QString &path : before.keys() + after.keys()) {
            const auto isPart = [&](const QString &item) {
                return path == item || path.startsWith(item + "/") || path.startsWith(item + "-") ||
                       (item.startsWith(path + "/") && !before.contains(path));
            };
            if (before.value(path) != after.value(path) &&
                std::none_of(changing.cbegin(), changing.cend(), isPart)) {
                faults << "'" + path + "' has changed unannounced";
            }
        }
        return faults;
    }

    const QString data;
    Jobs jobs;
    const Stamps before;
    const PreviewList items;
    const Jobs::End dryRun;
    const bool untouched;
};
