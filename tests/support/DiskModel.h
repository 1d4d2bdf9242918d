#pragma once

#include "tests/support/FaultControl.h"
#include "tests/support/Promises.h"

#include <cstring>
#include <sys/stat.h>

/// The files below a directory as recorded calls change them, and what a power cut would leave of them: what
/// was synced, and of the rest any part.
class DiskModel
{
    using Names = QMap<QString, int>; ///< of files, to numbers

    struct Change
    {
        QString directory;
        QStringList gone;
        Names made;

        void perform(Names &names) const
        {
            for (const QString &name : gone) {
                names.remove(name);
            }
            names.insert(made);
        }
    };

    QString root;
    QHash<quint64, int> numbers; ///< by inode
    QList<QByteArray> contents;  ///< by number
    QList<QByteArray> synced;
    Names now;
    Names onDisk;
    QList<Change> pending;

    /// A directory's name leads those of all that is in it.
    Change renaming(const QString &from, const QString &to, bool exchanging) const
    {
        Change change = {from.section('/', 0, -2), {}, {}};
        for (auto name = now.cbegin(); name != now.cend(); ++name) {
            for (const auto &[left, right] : {std::pair(from, to), std::pair(to, from)}) {
                const bool within = name.key() == left || name.key().startsWith(left + "/");
                if (within && (left == from || exchanging)) {
                    change.gone << name.key();
                    change.made[right + name.key().mid(left.size())] = name.value();
                }
            }
        }
        return change;
    }

    void note(const Change &change)
    {
        change.perform(now);
        pending << change;
        for (auto name = change.made.cbegin(); name != change.made.cend(); ++name) {
            if (contents[name.value()] != synced[name.value()]) {
                namedTooEarly.insert(name.key(), {});
            }
        }
    }

    void sync(const QString &directory)
    {
        pending.removeIf([&](const Change &change) {
            const bool reached = directory.isNull() || change.directory == directory;
            if (reached) {
                change.perform(onDisk);
            }
            return reached;
        });
    }

    static Files files(const Names &names, const QList<QByteArray> &contents)
    {
        Files files;
        for (auto name = names.cbegin(); name != names.cend(); ++name) {
            files.insert(name.key(), contents[name.value()]);
        }
        return files;
    }

public:
    /// What lies below the directory now is on the disk.
    explicit DiskModel(const QString &root) : root(root)
    {
        for (const QString &name : filesBelow(root).keys()) {
            struct stat status = {};
            stat(QFile::encodeName(root + name).constData(), &status);
            now[name] = numbers[status.st_ino] = int(contents.size());
            contents << readFile(root + name);
        }
        synced = contents;
        onDisk = now;
    }

    Files namedTooEarly; ///< names that files took before what is in them was on the disk

    /// The files as they are, by their paths below the directory.
    Files present() const { return files(now, contents); }

    /// Take the next change off a record.
    void take(QByteArray &record)
    {
        FaultEvent event = {};
        std::memcpy(&event, record.constData(), sizeof event);
        const QString name = QString::fromUtf8(record.mid(sizeof event, event.firstSize)).mid(root.size());
        const QByteArray second = record.mid(qsizetype(sizeof event) + event.firstSize, event.secondSize);
        record.remove(0, qsizetype(sizeof event) + event.firstSize + event.secondSize);
        const bool makes = event.kind == FaultEvent::Created && (!now.contains(name) || !second.isEmpty());
        if (makes || !numbers.contains(event.inode)) {
            numbers[event.inode] = int(contents.size());
            contents << QByteArray();
            synced << QByteArray();
        }
        const int number = numbers[event.inode];
        QByteArray &content = contents[number];
        const QString directory = name.section('/', 0, -2);
        switch (event.kind) {
        case FaultEvent::Created:
        case FaultEvent::Linked:
            if (second.isEmpty() && !now.contains(name)) {
                note({directory, {}, {{name, number}}});
            }
            return;
        case FaultEvent::Written:
            content.resize(std::max<qsizetype>(content.size(), event.offset));
            content.replace(event.offset, second.size(), second);
            return;
        case FaultEvent::Cut:
            return content.resize(event.offset);
        case FaultEvent::Moved:
        case FaultEvent::Exchanged:
            return note(renaming(name, QString::fromUtf8(second).mid(root.size()),
                                 event.kind == FaultEvent::Exchanged));
        case FaultEvent::Removed:
            return note({directory, {name}, {}});
        case FaultEvent::FileSynced:
            synced[number] = content;
            return;
        case FaultEvent::DirectorySynced:
            return sync(name);
        case FaultEvent::AllSynced:
            synced = contents;
            return sync({});
        }
    }

    /// What power cuts may leave: of the names' changes that are not on the disk none, one, all but one or
    /// all, and with each of these what files hold as it was synced or as it is.
    QList<Files> afterPowerCuts() const
    {
        QList<Names> possible = {onDisk, now};
        for (const Change &one : pending) {
            Names alone = onDisk;
            Names others = onDisk;
            for (const Change &change : pending) {
                change.perform(&change == &one ? alone : others);
            }
            possible << alone << others;
        }
        QList<Files> states;
        for (const Names &names : std::as_const(possible)) {
            states << files(names, synced) << files(names, contents);
        }
        return states;
    }
};
