#include "device/manager/ApplicationManager.h"

#include "device/common/PlainName.h"
#include "device/manager/MigrationProgram.h"
#include "device/manager/ModulesConfiguration.h"
#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"

#include <QDeadlineTimer>
#include <QFile>

#include <algorithm>

namespace {

constexpr int endLimitMs = 3000;

} // namespace

ApplicationManager::ApplicationManager() : VYXModule("ApplicationManager") {}

bool ApplicationManager::Init()
{
    registerDBusApplicationConfig();
    registerDBusCapability();
    QFile file(DevicePaths::configurationRoot() + "/modules.conf");
    if (!file.open(QIODevice::ReadOnly)) {
        logError("Could not read %1: %2", file.fileName(), file.errorString());
        return false;
    }
    QList<int> rejectedLines;
    for (const ModuleDefinition &definition : parseModulesConfiguration(file.readAll(), rejectedLines)) {
        modules.append(new ModuleProcess(definition, this));
    }
    for (const int line : rejectedLines) {
        logWarning("Line %1 of %2 describes no module", line, file.fileName());
    }
    return true;
}

bool ApplicationManager::Run()
{
    for (ModuleProcess *module : modules) {
        module->start();
    }
    return true;
}

bool ApplicationManager::Stop()
{
    stopAll();
    const QDeadlineTimer deadline(endLimitMs);
    bool allEnded = true;
    for (ModuleProcess *module : modules) {
        allEnded = module->waitForEnd(static_cast<int>(deadline.remainingTime())) && allEnded;
    }
    return allEnded;
}

ListApplicationConfig ApplicationManager::getModulesList()
{
    ListApplicationConfig list;
    for (const ModuleProcess *module : modules) {
        list.append(module->describe());
    }
    return list;
}

void ApplicationManager::migratForRestore(const QString &module, const QString &savedRelease,
                                          const QString &release)
{
    const bool started = isPlainName(module) && startMigration(module, {module, savedRelease, release}, this);
    if (!started && calledFromDBus()) {
        sendErrorReply(QDBusError::InvalidArgs, "no migration program for this module");
    }
}

void ApplicationManager::stopAll()
{
    for (ModuleProcess *module : modules) {
        module->requestEnd();
    }
}

bool ApplicationManager::startModule(const QString &module)
{
    ModuleProcess *process = find(module);
    return process != nullptr && process->start();
}

bool ApplicationManager::stopModule(const QString &module)
{
    ModuleProcess *process = find(module);
    if (process == nullptr) {
        return false;
    }
    process->requestEnd();
    return process->waitForEnd(endLimitMs);
}

bool ApplicationManager::setModuleRelease(const QString &module, const QString &release,
                                          const QString &version)
{
    ModuleProcess *process = find(module);
    if (process == nullptr) {
        return false;
    }
    process->setRelease(release, version);
    return true;
}

ModuleProcess *ApplicationManager::find(const QString &module) const
{
    const auto found = std::find_if(modules.cbegin(), modules.cend(), [&](const ModuleProcess *candidate) {
        return candidate->getName() == module;
    });
    return found == modules.cend() ? nullptr : *found;
}
