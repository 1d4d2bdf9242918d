#include "tests/support/DiskModel.h"

#include "tests/support/Files.h"

#include <QDirIterator>

#include <cstring>
#include <sys/stat.h>
#include <utility>

DiskModel::DiskModel(const QString &root) : root(root)
{
    QDirIterator all(root, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (all.hasNext()) {
        const QString path = all.next();
        struct stat status = {};
        stat(QFile::encodeName(path).constData(), &status);
        now[path] = numbers[status.st_ino] = int(contents.size());
        contents << readFile(path);
    }
    synced = contents;
    onDisk = now;
}

void DiskModel::perform(const Change &change, Names &names)
{
    for (const QString &name : change.gone) {
        names.remove(name);
    }
    names.insert(change.made);
}

void DiskModel::note(const Change &change)
{
    perform(change, now);
    pending << change;
    for (auto name = change.made.cbegin(); name != change.made.cend(); ++name) {
        if (contents[name.value()] != synced[name.value()]) {
            named << name.key();
        }
    }
}

/// A directory's name leads those of all that is in it.
void DiskModel::rename(const QString &from, const QString &to, bool exchanges)
{
    Change change = {to.section('/', 0, -2), {}, {}};
    for (auto name = now.cbegin(); name != now.cend(); ++name) {
        for (const auto &[left, right] : {std::pair(from, to), std::pair(to, from)}) {
            const bool concerned = name.key() == left || name.key().startsWith(left + "/");
            if (concerned && (left == from || exchanges)) {
                change.gone << name.key();
                change.made[right + name.key().mid(left.size())] = name.value();
            }
        }
    }
    note(change);
}

FaultEvent::Kind DiskModel::take(QByteArray &record)
{
    FaultEvent event = {};
    std::memcpy(&event, record.constData(), sizeof event);
    const QString first = QString::fromUtf8(record.mid(sizeof event, event.firstSize));
    const QByteArray second = record.mid(qsizetype(sizeof event + event.firstSize), event.secondSize);
    record.remove(0, qsizetype(sizeof event + event.firstSize + event.secondSize));
    const bool made = event.kind == FaultEvent::Created && !(now.contains(first) && second.isEmpty());
    if (made || !numbers.contains(event.inode)) {
        numbers[event.inode] = int(contents.size());
        contents << QByteArray();
        synced << QByteArray();
    }
    const int number = numbers[event.inode];
    const QString directory = first.section('/', 0, -2);
    switch (event.kind) {
    case FaultEvent::Created:
    case FaultEvent::Linked:
        if (second.isEmpty() && now.value(first, -1) != number) {
            note({directory, {}, {{first, number}}});
        }
        break;
    case FaultEvent::Written:
        contents[number].resize(std::max<qsizetype>(contents[number].size(), event.offset));
        contents[number].replace(event.offset, second.size(), second);
        break;
    case FaultEvent::Cut:
        contents[number].resize(event.offset);
        break;
    case FaultEvent::Moved:
    case FaultEvent::Exchanged:
        rename(first, QString::fromUtf8(second), event.kind == FaultEvent::Exchanged);
        break;
    case FaultEvent::Removed:
        note({directory, {first}, {}});
        break;
    case FaultEvent::FileSynced:
        synced[number] = contents[number];
        break;
    case FaultEvent::AllSynced:
        synced = contents;
        [[fallthrough]];
    case FaultEvent::DirectorySynced:
        pending.removeIf([&](const Change &change) {
            const bool reaches = event.kind == FaultEvent::AllSynced || change.directory == first;
            if (reaches) {
                perform(change, onDisk);
            }
            return reaches;
        });
        break;
    }
    return event.kind;
}

DiskModel::Files DiskModel::files(const Names &names, const QList<QByteArray> &contents)
{
    Files files;
    for (auto name = names.cbegin(); name != names.cend(); ++name) {
        files.insert(name.key(), contents[name.value()]);
    }
    return files;
}

QList<DiskModel::Files> DiskModel::afterPowerCuts() const
{
    Names last = onDisk;
    if (!pending.isEmpty()) {
        perform(pending.last(), last);
    }
    QList<Files> all;
    for (const Names &names : {onDisk, last, now}) {
        all << files(names, synced) << files(names, contents);
    }
    return all;
}
