#pragma once

#include "verify/StoredItems.h"

#include <QList>
#include <QString>

class Waiter;

/// An entry that was fetched, and what is wrong with its content.
struct EntryCheck
{
    StoredItem item;
    QString path; ///< of the fetched file
    QString fault = {};
    bool isChecked = true; ///< false when there was no room to try it
};

/// Check them side by side: a plain file and an archive have the digest that was promised, an archive can be
/// read to its end; a dump is of the database that was promised and whole, and that of a whole database makes
/// one in the trial directory that is in order. Of no meaning when the waiter has to end.
void checkEntries(QList<EntryCheck> &entries, Waiter &waiter);
