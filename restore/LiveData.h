#pragma once

#include <QString>

/// The modules' data as they lie on the device.
namespace LiveData {

/// Bring into order, below a directory, what restores that were cut off have left: half-made data are
/// removed, a database that is ready takes its place, and what was set aside is brought back.
void recoverAll(const QString &root);

/// True when the path, with the links in its directories followed, lies below the data directory of the
/// module.
bool belongsToModule(const QString &path, const QString &module);

} // namespace LiveData
