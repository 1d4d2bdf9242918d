#include "device/sample/SampleModule.h"

#include "device/sample/DatabaseWriter.h"
#include "device/sample/DataRecipe.h"
#include "platform/DevicePaths.h"

#include <QThread>

#include <utility>

SampleModule::SampleModule(const QString &name, SampleModuleOptions options)
    : VYXModule(name), options(std::move(options))
{
}

bool SampleModule::Init()
{
    registerDBusCapability();
    return createModuleData(DevicePaths::libraryRoot() + "/recipe/" + getModuleName(),
                            DevicePaths::moduleData(getModuleName()));
}

bool SampleModule::Run()
{
    if (options.writtenDatabase.isEmpty()) {
        return true;
    }
    const QString path = DevicePaths::moduleData(getModuleName()) + "/" + options.writtenDatabase + ".data";
    return (new DatabaseWriter(path, this))->start();
}

void SampleModule::preSaveForSaveRestore()
{
    QThread::msleep(static_cast<unsigned long>(options.pauseDelayMs));
}
