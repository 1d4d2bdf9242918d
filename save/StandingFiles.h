#pragma once

#include "catalogue/SavedEntries.h"

#include <QHash>
#include <QList>
#include <QMap>
#include <QSet>
#include <QString>

/// What has become of a send.
enum class SendResult {
    Stored,
    Untouched, ///< failed, and the entry is as it was
    Unknown,   ///< failed, and what the entry holds now is not known
};

/// A checksum file that is to be stored.
struct ChecksumSend
{
    QString module;
    ChecksumLines lines;
};

/// The checksum files as they stand in the repository, and the way from them to others.
///
/// The entries of plain files follow from all checksum files together, which are stored one after the other.
/// On the way no line has a digest whose entry would be another one at any moment: it loses the digest before
/// the names change, and gets it when they are final. More lines can only make more files bear their
/// module's name, so a name that is the same with the fewest and the most lines is the same in between.
class StandingFiles
{
public:
    /// Modules that enter or leave the modules list may count or not until it is stored. What the file of one
    /// that leaves says matters to nobody, except that it has its items.
    StandingFiles(const LinesByModule &files, QSet<QString> entering, QSet<QString> leaving);

    /// The files to be stored next, in their order, on the way to `target`, which holds those that may be
    /// stored. `held` has the digest of what each entry holds. Empty at the end of the way, or where it is
    /// barred by the file of a module that may not be stored.
    QList<ChecksumSend> next(const LinesByModule &target, const QHash<QString, QString> &held) const;
    void note(const ChecksumSend &send, SendResult result);
    /// The modules list has these modules and no other.
    void noteListed(const QStringList &modules);

    /// The file of a module; when its last send failed, the one before.
    ChecksumLines lines(const QString &module) const { return files.value(module).value(0); }
    bool isCertainly(const QString &module, const ChecksumLines &lines) const
    {
        return files.value(module) == QList<ChecksumLines>{lines};
    }
    /// The entries of which the files of these modules may have a digest.
    QSet<QString> promised(const QStringList &modules) const;

private:
    struct Names
    {
        SavedEntries fewest;
        SavedEntries most;
    };

    Names namesOnTheWay(const LinesByModule &target) const;

    QMap<QString, QList<ChecksumLines>> files; ///< more than one where it is not known which
    QSet<QString> entering;
    QSet<QString> leaving;
};
