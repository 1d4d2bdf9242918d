#pragma once

#include "catalogue/ChecksumComparison.h"
#include "catalogue/SavedEntries.h"
#include "catalogue/SavedItem.h"
#include "save/LineFinder.h"
#include "save/StandingFiles.h"

#include <QHash>
#include <QMap>
#include <QSet>
#include <QString>

/// An item that is to be stored.
struct PlannedSend
{
    SavedItem item;
    ChecksumLine line;  ///< as the module's checksum file is to have it
    QString entry;      ///< under which it is to be stored
    QString heldAs;     ///< entry under which the repository holds what it has of the item; empty for nothing
    QString heldDigest; ///< digest of that
    bool isNew = false; ///< the repository has no such item, or has it under another name
};

/// An entry that the repository holds no longer after the upload.
struct EntryRemoval
{
    QString module;
    ChecksumLine line;
    QString entry;
};

/// What an upload has to do, and what the checksum files may promise after what was done. It knows what the
/// repository holds, entry by entry, and does nothing itself.
///
/// The entries of plain files follow from the checksum files of all modules together. Items that claim the
/// same entry therefore change together or not at all: when one of them cannot, they stay as they were saved.
class UploadPlan
{
public:
    /// The lines as the repository has them and as it is to have them. A module whose saved lines are not
    /// known is in neither. One that leaves the modules list is not in `current`; those of `entering` are not
    /// on the list yet.
    UploadPlan(LinesByModule previous, const LinesByModule &current, QSet<QString> entering = {});

    /// The repository does not hold what it promises of that item: it is to be stored again.
    void noteDamaged(const QString &module, const QString &identity);
    /// Nothing of this module may change in the repository.
    void block(const QString &module);
    /// There are items that are not known: those that are must neither take names nor give them up, and the
    /// entry of a plain file must not change unless it is confirmed.
    void blockNames() { namesBlocked = true; }
    /// The item's entry has been looked at and holds what it is held to hold.
    void confirm(const PlannedSend &send);

    bool isBlocked(const QString &module) const { return blockedModules.contains(module); }
    bool hasChanges(const QString &module) const;
    /// The lines as the repository is to have them.
    ChecksumLines wantedLines(const QString &module) const { return current.lines().value(module); }
    bool isSame(const QString &module, const ChecksumLine &line) const
    {
        return statuses.value(module).value(line.identity()).status == Same;
    }

    /// The checksum files to be stored next, until there are none, so that modules with changes promise their
    /// unchanged items alone while items are being sent. The other lines have no digest: they promise nothing
    /// and keep the items' names taken.
    QList<ChecksumSend> nextHeldFiles() const;
    /// The checksum files to be stored next, until there are none, to get to the settled lines. The files of
    /// the modules of `kept` stay as they are.
    QList<ChecksumSend> nextFinalFiles(const QSet<QString> &kept) const;
    /// True when the module has changed nothing, and its file is as it is to be.
    bool isFinal(const QString &module) const
    {
        return !hasChanges(module) && settled.contains(module) &&
               files.isCertainly(module, settled.value(module));
    }
    void note(const ChecksumSend &send, SendResult result) { files.note(send, result); }
    void noteListed(const QStringList &modules) { files.noteListed(modules); }
    /// The checksum files are as they are to stay while items are sent. Modules with changes whose file could
    /// not be brought there are blocked and returned, as far as they were not.
    QStringList closeHeldFiles();

    /// The module's items that are new or changed, in the order of its lines.
    QList<PlannedSend> sends(const QString &module) const;
    /// True when the item has to stay as it was saved.
    bool isFrozen(const PlannedSend &send) const { return isFrozen(send.item.getModule(), send.line); }
    /// `digest` is that of what was stored: the item may have changed since its line was made.
    void note(const PlannedSend &send, SendResult result, const QString &digest = {});

    /// All other items that were to be sent stay as they were saved.
    void postpone(const QSet<ItemIdentity> &allBut);
    bool isSettled() const { return !settled.isEmpty(); }

    /// Decide what the checksum files may say after all sends. False when that cannot be told for certain:
    /// then the held lines have to stay.
    bool settle();
    /// The entries that no settled line uses; whatever becomes of their removal, nothing relies on them.
    QList<EntryRemoval> takeRemovals();
    /// These entries are still there: their items stay in the lines, without digest, and are removed another
    /// time.
    void noteRemovalsFailed(const QList<EntryRemoval> &removals);

private:
    bool isFrozen(const QString &module, const ChecksumLine &line) const;
    void compare();
    ChecksumLines settledLines(const QString &module) const;
    ChecksumLine storedLine(const QString &module, ChecksumLine line) const;
    std::optional<ChecksumLine> keptLine(const QString &module, const ChecksumLine &before,
                                         const ChecksumLine *wanted) const;
    ChecksumLines heldLines(const QString &module) const;
    QStringList possibleEntries(const QString &module, const ChecksumLine &line) const;
    bool withdrawUntrueDigests();

    LinesByModule previousLines;
    SavedEntries previous; ///< of the modules on the list
    SavedEntries current;
    SavedEntries meanwhile; ///< with the lines of both
    const LineFinder before;
    const LineFinder wanted;
    StandingFiles files;
    QSet<QString> promised; ///< entries that must not change while items are sent
    QMap<QString, ChecksumEntries> statuses;
    QHash<QString, QSet<QString>> claims; ///< items by the entry that they claim
    QSet<QString> blockedModules;
    QSet<QString> frozenClaims; ///< claimed entries whose items stay as they were saved
    bool namesBlocked = false;
    QSet<QString> confirmedClaims;
    QHash<QString, QString>
        stored;                   ///< digest of what was stored, by module and key, when it is not the line's
    QHash<QString, QString> held; ///< digest of what each entry is known to hold
    LinesByModule settled;
};
