#include "service/VYXSaveRestore.h"

#include "dbus/VYXSaveRestoreAdaptor.h"
#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"
#include "platform/records/TimePattern.h"
#include "repository/Repository.h"
#include "reset/ResetOperation.h"
#include "restorable/RestorableListing.h"
#include "restore/LiveData.h"
#include "restore/RestoreOperation.h"
#include "save/SaveOperation.h"
#include "staging/WorkingDirectory.h"

#include <QCoreApplication>
#include <QRandomGenerator>

namespace {

VYXSaveRestore *singleton = nullptr;

} // namespace

VYXSaveRestore *VYXSaveRestore::instance(const ServiceLimits &limits)
{
    if (singleton == nullptr) {
        singleton = new VYXSaveRestore(limits);
    }
    return singleton;
}

VYXSaveRestore::VYXSaveRestore(const ServiceLimits &limits)
    : VYXModule("VYXSaveRestore"), limits(limits), knownModules(*this), pauses(*this, limits.pause),
      schedule(*this, waiter), operations(*this)
{
}

VYXSaveRestore::~VYXSaveRestore()
{
    singleton = nullptr;
}

bool VYXSaveRestore::Check()
{
    logDebug("Check");
    return true;
}

bool VYXSaveRestore::Deploy()
{
    logDebug("Deploy");
    return true;
}

bool VYXSaveRestore::Init()
{
    logDebug("Init");
    registerDBusApplicationConfig();
    registerDBusTimePattern();
    registerDBusSetting();
    registerDBusCapability();
    registerDBusUpdateReport();
    WorkingDirectory::createAll();
    LiveData::recoverAll(DevicePaths::dataRoot());
    pauses.start();
    connect(&operations, &OperationSlot::usesRepositoryChanged, this, &VYXSaveRestore::checkCapability);
    // Nothing is on the stack any more when the event loop has ended.
    connect(QCoreApplication::instance(), &QCoreApplication::aboutToQuit, this,
            [this] { repository.reset(); });

    MapQStringCapability capabilities = getCapabilities();
    const Capability capability = computedCapability();
    capabilities.insert(capability.getName(), capability);
    setCapabilities(capabilities);
    return true;
}

bool VYXSaveRestore::Run()
{
    logDebug("Run");
    setAdaptor(createSaveRestoreAdaptor(this));
    schedule.removeAllTasks();
    readSettings();
    knownModules.parseRestorableConfigFiles(waiter);
    knownModules.completeSaveGroups();
    checkCapability();
    return true;
}

bool VYXSaveRestore::Stop()
{
    logDebug("Stop");
    return true;
}

OperationContext VYXSaveRestore::operationContext(Waiter &operationWaiter)
{
    return {.middleware = *this,
            .waiter = operationWaiter,
            .modules = knownModules,
            .pauses = pauses,
            .enabled = settings.enabled,
            .priorities = settings.priorities,
            .repository = repository};
}

bool VYXSaveRestore::startSaveOnRepository()
{
    bool saved = false;
    operations.run(OperationSlot::Uses::Repository, [&](Waiter &operationWaiter) {
        saved = SaveOperation(operationContext(operationWaiter)).startSaveOnRepository();
    });
    return saved;
}

void VYXSaveRestore::startSaveOnRepository(int)
{
    if (!settings.enabled) {
        logDebug("Save/Restore is disabled: abort");
    } else if (repository == nullptr) {
        logError("Repository URL not provided!");
    } else {
        startSaveOnRepository();
    }
}

void VYXSaveRestore::startRestoreFromRepository()
{
    operations.run(OperationSlot::Uses::Repository, [this](Waiter &operationWaiter) {
        RestoreOperation(operationContext(operationWaiter)).startRestoreFromRepository();
    });
}

bool VYXSaveRestore::reset(bool toDefault)
{
    const auto kind = toDefault ? ResetOperation::Kind::ToDefault : ResetOperation::Kind::ToFactory;
    bool reboot = false;
    operations.run(OperationSlot::Uses::Modules, [&](Waiter &operationWaiter) {
        ResetOperation operation(kind, knownModules, *this, operationWaiter,
                                 toDefault ? limits.defaultReset : limits.factoryReset);
        operation.run();
        reboot = operation.needsReboot();
    });
    return reboot;
}

bool VYXSaveRestore::resetToDefault()
{
    return reset(true);
}

void VYXSaveRestore::resetToFactory()
{
    reset(false);
}

void VYXSaveRestore::refreshSaveFrequency()
{
    constexpr int minutes = 5;
    const int minute = QRandomGenerator::global()->bounded(minutes);
    const bool frequency = settings.scheduleType == Settings::Frequency;
    setSaveFrequency(settings.schedule, minute, frequency, settings.scheduleType != Settings::Disabled);
}

void VYXSaveRestore::setSaveFrequency(int hour, int minute, bool frequency, bool enable)
{
    operations.whenFree([=, this] { schedule.setSaveFrequency(hour, minute, frequency, enable); });
}

QString VYXSaveRestore::printRestorableFiles()
{
    return restorableListing(knownModules.objects());
}
