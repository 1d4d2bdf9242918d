#pragma once

#include <QString>

class Waiter;

/// The directories below /tmp in which the service works; readable for their owner alone.
///
/// None of them is used when it is a link, belongs to somebody else than root and the service's user, or can
/// be changed by others: an error names it.
namespace WorkingDirectory {

/// Make those that are missing; a warning tells of each.
void createAll();

/// Make one of them if it is missing and remove all that is in it; links are removed and never followed.
/// False when that is not possible.
bool cleanStagingRoot(Waiter &waiter);
bool cleanRestoreDirectory(Waiter &waiter);

} // namespace WorkingDirectory
