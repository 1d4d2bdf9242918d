#pragma once

#include "tests/support/FaultControl.h"
#include "tests/support/Promises.h"

#include <cstring>
#include <sys/stat.h>

/// The files below a directory as recorded calls change them, and what a power cut would leave of them: what
/// was synced, and of the rest any part.
class DiskModel
{
    struct File
    {
        QByteArray content;
        QByteArray synced;
    };
    using Names = QMap<QString, std::shared_ptr<File>>;

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
    QHash<quint64, std::shared_ptr<File>> files; ///< by inode
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
            if (name.value()->content != name.value()->synced) {
                namedTooEarly.insert(name.key(), {});
            }
        }
    }

    void syncNames(const QString &directory)
    {
        pending.removeIf([&](const Change &change) {
            const bool reached = directory.isNull() || change.directory == directory;
            if (reached) {
                change.perform(onDisk);
            }
            return reached;
        });
    }

    static Files state(const Names &names, QByteArray File::*content)
    {
        Files files;
        for (auto name = names.cbegin(); name != names.cend(); ++name) {
            files.insert(name.key(), (*name.value()).*content);
        }
        return files;
    }

public:
    /// What lies below the directory now is on the disk.
    explicit DiskModel(const QString &root) : root(root)
    {
        const Files found = filesBelow(root);
        for (auto file = found.cbegin(); file != found.cend(); ++file) {
            struct stat status = {};
            stat(QFile::encodeName(root + file.key()).constData(), &status);
            files[status.st_ino] = std::make_shared<File>(File{file.value(), file.value()});
            onDisk[file.key()] = now[file.key()] = files[status.st_ino];
        }
    }

    Files namedTooEarly; ///< names that files took before what is in them was on the disk

    /// The files as they are, by their paths below the directory.
    Files present() const { return state(now, &File::content); }

    /// Take the next change off a record.
    void take(QByteArray &record)
    {
        FaultEvent event = {};
        std::memcpy(&event, record.constData(), sizeof event);
        const QString name = QString::fromUtf8(record.mid(sizeof event, event.firstSize)).mid(root.size());
        const QByteArray second = record.mid(qsizetype(sizeof event) + event.firstSize, event.secondSize);
        record.remove(0, qsizetype(sizeof event) + event.firstSize + event.secondSize);
        const bool makes = event.kind == FaultEvent::Created && (!now.contains(name) || !second.isEmpty());
        if (makes || !files.contains(event.inode)) {
            files[event.inode] = std::make_shared<File>();
        }
        const std::shared_ptr<File> file = files[event.inode];
        const QString directory = name.section('/', 0, -2);
        switch (event.kind) {
        case FaultEvent::Created:
        case FaultEvent::Linked:
            return second.isEmpty() && !now.contains(name) ? note({directory, {}, {{name, file}}}) : void();
        case FaultEvent::Written:
            file->content.resize(std::max<qsizetype>(file->content.size(), event.offset));
            file->content.replace(event.offset, second.size(), second);
            return;
        case FaultEvent::Cut:
            return file->content.resize(event.offset);
        case FaultEvent::Moved:
        case FaultEvent::Exchanged:
            return note(renaming(name, QString::fromUtf8(second).mid(root.size()),
                                 event.kind == FaultEvent::Exchanged));
        case FaultEvent::Removed:
            return note({directory, {name}, {}});
        case FaultEvent::FileSynced:
            file->synced = file->content;
            return;
        case FaultEvent::DirectorySynced:
            return syncNames(name);
        case FaultEvent::AllSynced:
            for (const auto &each : std::as_const(files)) {
                each->synced = each->content;
            }
            return syncNames({});
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
            states << state(names, &File::synced) << state(names, &File::content);
        }
        return states;
    }
};
