#include "staging/Staging.h"

#include "catalogue/ItemNames.h"
#include "commands/Command.h"
#include "commands/ShellText.h"
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
    const QStringList arguments = {"-p", directory};
    logDebug("Creating dir into temp: %1", ShellText::commandLine("mkdir", arguments));
    runCommand("mkdir", arguments);
}

void reportError(const QString &command)
{
    logDebug("Error with %1", command);
}

} // namespace Staging
