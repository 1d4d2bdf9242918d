#pragma once

#include <QString>

#include <functional>

class Waiter;

/// The modules' data as they lie on the device.
namespace LiveData {

/// Bring into order, below a directory, what restores that were cut off have left: half-made data are
/// removed, a database that is ready takes its place, and what was set aside is brought back. False when
/// something of that was not possible, or when `mustEnd` became true.
bool recoverAll(
    const QString &root, const std::function<bool()> &mustEnd = [] { return false; });

/// The same in the data of the modules of which a note says that a restore was replacing them, and where
/// saved databases are tried: nothing else is looked at.
void recoverNoted();

/// The same in all data, when there is no such note to go by; events are served meanwhile. Bounded: one that
/// does not come to its end is done anew the next time.
void recoverWithoutNote(Waiter &waiter);

/// True when the path, with the links in its directories followed, lies below the data directory of the
/// module.
bool belongsToModule(const QString &path, const QString &module);

} // namespace LiveData
