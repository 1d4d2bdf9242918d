#include "staging/Staging.h"

#include "catalogue/ItemNames.h"
#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"

#include <QDir>

namespace Staging {

QString moduleDirectory(const QString &module)
{
    return DevicePaths::staged(module);
}

QString checksumFile(const QString &module)
{
    return DevicePaths::staged(ItemNames::checksumFileName(module));
}

void createModuleDirectory(const QString &module)
{
    const QString directory = moduleDirectory(module);
    if (QDir(directory).exists()) {
        return;
    }
    logDebug("Creating dir into temp: %1", directory);
    QDir().mkpath(directory);
}

void reportError(const QString &command)
{
    logDebug("Error with %1", command);
}

} // namespace Staging
