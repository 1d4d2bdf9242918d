#pragma once

#include "tests/support/FaultControl.h"

#include <QHash>
#include <QList>
#include <QMap>

/// The files below a directory as recorded calls change them, and what a power cut would leave of them: what
/// was synced, and of the rest any part.
class DiskModel
{
public:
    using Files = QMap<QString, QByteArray>;

    /// What lies below the directory now is on the disk.
    explicit DiskModel(const QString &root);

    /// Take the next change off a record, and tell what kind it was.
    FaultEvent::Kind take(QByteArray &record);

    /// The files as they are, by their paths below the directory.
    Files present() const { return files(now, contents); }
    /// What power cuts may leave: of the names' changes that are not on the disk none, the last or all, and
    /// with each of these what files hold as it was synced or as it is.
    QList<Files> afterPowerCuts() const;
    /// Names that were given so far to what was not on the disk yet, leaving out those a filter refuses.
    QStringList named;

private:
    using Names = QMap<QString, int>; ///< of files, to numbers
    struct Change
    {
        QString directory;
        QStringList gone;
        Names made;
    };

    static void perform(const Change &change, Names &names);
    void rename(const QString &from, const QString &to, bool exchanges);
    void note(const Change &change);
    static Files files(const Names &names, const QList<QByteArray> &contents);

    QString root;
    QHash<quint64, int> numbers; ///< by inode
    QList<QByteArray> contents;  ///< by number
    QList<QByteArray> synced;
    Names now;
    Names onDisk;
    QList<Change> pending;
};
