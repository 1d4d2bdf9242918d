#include "platform/DevicePaths.h"

#include <QDir>

namespace DevicePaths {

QString root()
{
    const QString configured = qEnvironmentVariable("VYX_DEVICE_ROOT");
    if (configured.isEmpty()) {
        return {};
    }
    const QString clean = QDir::cleanPath(QDir(configured).absolutePath());
    return clean == "/" ? QString() : clean;
}

QString dataRoot()
{
    return root() + "/data/VYXApplication";
}

QString moduleData(const QString &module)
{
    return dataRoot() + "/" + module;
}

QString developerModeMarker()
{
    return root() + "/data/dev_mode";
}

QString configurationRoot()
{
    return root() + "/etc/VYXApplication";
}

QString restorableDescription(const QString &module)
{
    return configurationRoot() + "/module/" + module + "/restorable.xml";
}

QString stagingRoot()
{
    return root() + "/tmp/VYXApplication/SaveRestore/Save";
}

QString staged(const QString &name)
{
    return stagingRoot() + "/" + name;
}

QString restoreDirectory()
{
    return root() + "/tmp/VYXApplication/SaveRestore/Restore";
}

QString fetched(const QString &name)
{
    return restoreDirectory() + "/" + name;
}

QString rememberedDigests()
{
    return moduleData("VYXSaveRestore") + "/digests";
}

QString lastOperations()
{
    return moduleData("VYXSaveRestore") + "/last-operations";
}

QString restoreNote()
{
    return moduleData("VYXSaveRestore") + "/restoring-modules";
}

QString trialDirectory()
{
    return moduleData("VYXSaveRestore") + "/trial";
}

QString pauseRecord()
{
    return root() + "/tmp/VYXApplication/SaveRestore/paused-modules";
}

QString getVYXinfo()
{
    return root() + "/usr/bin/getVYXinfo";
}

QString libraryRoot()
{
    return root() + "/usr/lib/VYXApplication";
}

QString migrationProgram(const QString &module)
{
    return libraryRoot() + "/migration/" + module + "Migration";
}

} // namespace DevicePaths
