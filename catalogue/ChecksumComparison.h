#pragma once

#include "catalogue/ChecksumFile.h"

#include <QMap>
#include <QString>

enum ChecksumStatus {
    New = 0,     ///< restore: on one side only; upload: new on this device
    Same = 1,    ///< on both sides with equal digests
    Updated = 2, ///< on both sides with different digests
    Deleted = 3, ///< save: on one side only
};

/// Outcome of a comparison for one item.
struct ChecksumEntry
{
    ChecksumStatus status = New;
    QString priority; ///< last field of the line the entry came from
    QString kind;     ///< field 3 of that line
};

/// By the identities of the items.
using ChecksumEntries = QMap<QString, ChecksumEntry>;

/// Compare local lines with those of the repository. A key of one side only gets the unmatched status:
/// `Deleted` for a save, `New` for a restore. A key on both sides keeps the priority and kind of its local
/// line; a repeated key counts with its last line.
ChecksumEntries compareChecksumLines(const ChecksumLines &local, const ChecksumLines &repository,
                                     bool forSave);
