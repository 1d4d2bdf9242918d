#pragma once

#include <QString>

/// What file and database staging share.
namespace Staging {

QString moduleDirectory(const QString &module);
QString checksumFile(const QString &module);

/// Make the module's directory below the staging root unless it is there.
void createModuleDirectory(const QString &module);

/// Log that a command gave no usable result.
void reportError(const QString &command);

} // namespace Staging
