#include "staging/StagingArea.h"

#include "platform/core/Waiter.h"
#include "platform/DevicePaths.h"
#include "platform/DiskSpace.h"
#include "platform/logger/VYXLogger.h"
#include "restorable/KnownModules.h"
#include "staging/DataSize.h"
#include "staging/FileStaging.h"
#include "staging/WorkingDirectory.h"

#include <QDir>
#include <QFileInfo>

#include <functional>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr qint64 mostCopied = qint64{64} * 1024 * 1024; ///< bytes of copies that are staged side by side
constexpr qint64 shareOfRoom = 4;                       ///< of what is free they take no more than one part

/// What is read for the repository must not be in the way of what the modules read and write: the lowest of
/// the ordinary priorities, for this thread and the children that it starts.
void giveWayToModules()
{
    // The kernel's own numbers: some versions of <linux/ioprio.h> are no C++.
    constexpr int process = 1;
    constexpr int bestEffort = 2;
    constexpr int classShift = 13;
    constexpr int lowest = 7;
    syscall(SYS_ioprio_set, process, 0, (bestEffort << classShift) | lowest);
}

/// The description of each module that has one, with the directory for its artefacts made.
template <typename Stage>
void forEachObject(const KnownModules &modules, const QStringList &names, const Stage &stage)
{
    for (const QString &name : names) {
        if (const RestorableObject *object = modules.findObject(name)) {
            QDir().mkpath(DevicePaths::staged(name));
            stage(*object);
        }
    }
}

} // namespace

bool StagingArea::cleanSaveDirectory()
{
    logDebug("Cleaning save directory");
    return WorkingDirectory::cleanStagingRoot(waiter);
}

void StagingArea::noteStaged(const QString &module, const RestorableFile &item) const
{
    if (fileStaged) {
        fileStaged(sizes.value(DevicePaths::moduleData(module) + "/" + item.getPath()));
    }
}

quint64 StagingArea::measureFiles(const QStringList &names, const Priorities &priorities,
                                  const std::function<void(quint64)> &staged)
{
    fileStaged = staged;
    quint64 sum = 0;
    const QList<RestorableOrder::RestorablePriority> included = priorities.included();
    waiter.runBeside([&] {
        for (const QString &name : names) {
            const RestorableObject *object = modules.findObject(name);
            for (const RestorableFile &item :
                 object != nullptr ? object->getFiles() : QList<RestorableFile>()) {
                if (included.contains(item.getPriority()) && !waiter.mustEnd()) {
                    const QString path = DevicePaths::moduleData(name) + "/" + item.getPath();
                    sum += sizes[path] = dataSize(path);
                }
            }
        }
    });
    return sum;
}

void StagingArea::stageFiles(const QStringList &names, RestorableOrder::RestorablePriority priority)
{
    QMap<QString, ChecksumLines> made;
    QList<std::function<void()>> works;
    forEachObject(modules, names, [&](const RestorableObject &object) {
        ChecksumLines &lines = made[object.getName()];
        works << [&, files = object.getFiles(), name = object.getName()] {
            giveWayToModules();
            FileStaging staging(name, artefacts, remembered, lines, waiter);
            for (const RestorableFile &item : files) {
                if (item.getPriority() == priority && !waiter.mustEnd()) {
                    staging.stage(item);
                    noteStaged(name, item);
                }
            }
        };
    });
    waiter.runAllBeside(works);
    for (auto lines = made.cbegin(); lines != made.cend(); ++lines) {
        stagedLines[lines.key()] += lines.value();
    }
}

qint64 StagingArea::sizeOfDatabases(const QStringList &names) const
{
    qint64 size = 0;
    for (const QString &name : names) {
        const RestorableObject *object = modules.findObject(name);
        for (const RestorableDatabase &database :
             object != nullptr ? object->getDatabases() : QList<RestorableDatabase>()) {
            size += QFileInfo(DevicePaths::moduleData(name) + "/" + database.getName() + ".data").size();
        }
    }
    return size;
}

void StagingArea::makeRoomFor(const QStringList &names)
{
    const qint64 needed = copiedBytes + sizeOfDatabases(names);
    const qint64 available = DiskSpace::of(DevicePaths::stagingRoot()).available;
    if (needed > mostCopied || needed > available / shareOfRoom) {
        finishDatabases();
    }
}

void StagingArea::copyDatabasesIntoTemp(const QStringList &names)
{
    copiedBytes += sizeOfDatabases(names);
    forEachObject(modules, names, [&](const RestorableObject &object) {
        const QString name = object.getName();
        DatabaseStaging &staging =
            copied.try_emplace(name, name, artefacts, remembered, waiter).first->second;
        for (const RestorableDatabase &database : object.getDatabases()) {
            staging.copy(database.getName());
        }
    });
}

void StagingArea::stageDatabases(const QStringList &names)
{
    forEachObject(modules, names, [&](const RestorableObject &object) {
        const auto staging = copied.find(object.getName());
        if (staging != copied.end()) {
            queue.add([object, &one = staging->second] {
                giveWayToModules();
                one.stageCopies(object);
            });
        }
    });
}

void StagingArea::finishDatabases()
{
    queue.finish(waiter);
    for (const auto &[name, staging] : copied) {
        stagedLines[name] += staging.lines();
    }
    copied.clear();
    copiedBytes = 0;
}

bool StagingArea::rememberRestored(const SavedItem &database, const QString &digest)
{
    return DatabaseStaging(database.getModule(), artefacts, remembered, waiter)
        .rememberRestored(database.getPath(), digest);
}
