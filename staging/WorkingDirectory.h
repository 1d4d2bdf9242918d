#pragma once

#include <QString>

class Waiter;

/// The directories below /tmp in which the service works; readable for their owner alone.
namespace WorkingDirectory {

/// Make those that are missing; a warning tells of each.
void createAll();

/// Make the directory if it is missing and remove all that is in it. False when that is not possible.
bool clean(const QString &path, Waiter &waiter);

} // namespace WorkingDirectory
