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
    return createModuleData(recipe(), dataDirectory());
}

bool SampleModule::Run()
{
    if (options.writtenDatabase.isEmpty()) {
        return true;
    }
    const QString path = dataDirectory() + "/" + options.writtenDatabase + ".data";
    return (new DatabaseWriter(path, this))->start();
}

void SampleModule::preSaveForSaveRestore()
{
    QThread::msleep(static_cast<unsigned long>(options.pauseDelayMs));
}

bool SampleModule::restoreDataToDefault()
{
    resetModuleFiles(recipe(), dataDirectory(), KeepAddedFiles);
    return options.needsReboot;
}

bool SampleModule::restoreDataToFactory()
{
    resetModuleFiles(recipe(), dataDirectory(), RemoveAddedFiles);
    return options.needsReboot;
}

QString SampleModule::recipe() const
{
    return DevicePaths::libraryRoot() + "/recipe/" + getModuleName();
}

QString SampleModule::dataDirectory() const
{
    return DevicePaths::moduleData(getModuleName());
}
