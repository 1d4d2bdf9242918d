#pragma once

#include "catalogue/ChecksumComparison.h"
#include "catalogue/SavedEntries.h"
#include "catalogue/SavedItem.h"

#include <QHash>
#include <QMap>
#include <QSet>
#include <QString>

/// An item that is to be stored.
struct PlannedSend
{
    SavedItem item;
    ChecksumLine line;          ///< as the module's checksum file is to have it
    ItemNames::EntryName entry; ///< under which it is to be stored
    QString heldAs;     ///< entry under which the repository holds what it has of the item; empty for nothing
    QString heldDigest; ///< digest of that
    bool isNew = false; ///< the repository has no such item, or has it under another name
};

/// An entry that the repository holds no longer after the upload.
struct EntryRemoval
{
    QString module;
    ChecksumLine line;
    ItemNames::EntryName entry;
};

/// What has become of a send.
enum class SendResult {
    Stored,
    Untouched, ///< failed, and the entry is as it was
    Unknown,   ///< failed, and what the entry holds now is not known
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
    /// known is in neither.
    UploadPlan(LinesByModule previous, LinesByModule current);

    /// Nothing of this module may change in the repository.
    void block(const QString &module);
    /// The entries of plain files are not known for certain: none may change unless it is confirmed.
    void blockPlainFiles() { plainFilesBlocked = true; }
    /// The item's entry has been looked at and holds what it is held to hold.
    void confirm(const PlannedSend &send);

    bool isBlocked(const QString &module) const { return blockedModules.contains(module); }
    bool hasChanges(const QString &module) const;
    bool isSame(const QString &module, const ChecksumLine &line) const
    {
        return statuses.value(module).value(line.key()).status == Same;
    }

    /// The lines that hold while the module's items are being sent: those of unchanged items. The others have
    /// no digest: they promise nothing and keep the items' names taken.
    ChecksumLines heldLines(const QString &module) const;

    /// The module's items that are new or changed, in the order of its lines.
    QList<PlannedSend> sends(const QString &module) const;
    /// True when the item has to stay as it was saved.
    bool isFrozen(const PlannedSend &send) const { return isFrozen(send.item.getModule(), send.line); }
    /// `digest` is that of what was stored: the item may have changed since its line was made.
    void note(const PlannedSend &send, SendResult result, const QString &digest = {});

    /// Decide what the checksum files may say after all sends. False when that cannot be told for certain:
    /// then the held lines have to stay.
    bool settle();
    ChecksumLines finalLines(const QString &module) const { return settled.value(module); }
    /// The entries that no settled line uses.
    QList<EntryRemoval> removals() const;
    /// The entry is still there: its item stays in the lines, without digest, and is removed another time.
    void noteRemovalFailed(const EntryRemoval &removal);

private:
    bool isFrozen(const QString &module, const ChecksumLine &line) const;
    void compare();
    ChecksumLines settledLines(const QString &module) const;
    ChecksumLine storedLine(const QString &module, ChecksumLine line) const;
    std::optional<ChecksumLine> keptLine(const QString &module, const ChecksumLine &before,
                                         const ChecksumLine *wanted) const;
    bool dropUntrueLines();

    SavedEntries previous;
    SavedEntries current;
    QMap<QString, ChecksumEntries> statuses;
    QHash<QString, QSet<QString>> claims; ///< items by the entry that they claim
    QSet<QString> blockedModules;
    QSet<QString> frozenClaims; ///< claimed entries whose items stay as they were saved
    bool plainFilesBlocked = false;
    QSet<QString> confirmedClaims;
    QHash<QString, QString>
        stored;                   ///< digest of what was stored, by module and key, when it is not the line's
    QHash<QString, QString> held; ///< digest of what each entry is known to hold
    LinesByModule settled;
};
