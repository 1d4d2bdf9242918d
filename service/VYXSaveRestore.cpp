#include "service/VYXSaveRestore.h"

#include "dbus/SaveRestoreAdaptors.h"
#include "platform/logger/VYXLogger.h"
#include "platform/records/TimePattern.h"
#include "repository/Repository.h"
#include "repository/RepositoryUrl.h"
#include "reset/ResetOperation.h"
#include "restorable/RestorableListing.h"
#include "restore/LiveData.h"
#include "restore/RestoreOperation.h"
#include "save/SaveOperation.h"
#include "staging/WorkingDirectory.h"

#include <QCoreApplication>
#include <QRandomGenerator>

#include <utility>

namespace {

using Operation = OperationReport::Operation;

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
      schedule(*this, waiter), operations(*this), control(*this, operations)
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
    registerDBusOperationSummary();
    registerDBusItemListing();
    WorkingDirectory::createAll();
    LiveData::recoverNoted();
    operations.prepareBy(&LiveData::recoverWithoutNote);
    pauses.start();
    connect(&operations, &OperationSlot::usesRepositoryChanged, this, &VYXSaveRestore::checkCapability);
    connect(&operations, &OperationSlot::ended, this, [this](const auto &summary) {
        showStatus();
        if (summary) {
            Q_EMIT Finished(summary->job, summary->operation, Outcome::name(summary->code), summary->toMap());
        }
    });
    // Nothing is on the stack any more when the event loop has ended.
    connect(QCoreApplication::instance(), &QCoreApplication::aboutToQuit, this, [this] {
        operations.dropQueued();
        repository.reset();
    });

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
    createControlAdaptor(this);
    control.load();
    schedule.removeAllTasks();
    readSettings();
    // At a first start the modules may not have made their data: the saves tell what is not there.
    knownModules.parseRestorableConfigFiles(waiter, MissingData::Expected);
    knownModules.completeSaveGroups();
    checkCapability();
    return true;
}

bool VYXSaveRestore::Stop()
{
    logDebug("Stop");
    return true;
}

/// What the control interface shows that follows from settings.
void VYXSaveRestore::showStatus()
{
    control.setRepository(repository ? RepositoryUrl::forDisplay(repository->getRepositoryUrl()) : QString());
    control.setNextSave(schedule.due(QDateTime::currentDateTime()));
}

OperationContext VYXSaveRestore::operationContext(Waiter &operationWaiter, OperationReport &report)
{
    return {.middleware = *this,
            .waiter = operationWaiter,
            .modules = knownModules,
            .pauses = pauses,
            .report = report,
            .enabled = settings.enabled,
            .priorities = settings.priorities,
            .repository = repository};
}

bool VYXSaveRestore::startSaveOnRepository()
{
    bool saved = false;
    operations.run(Operation::Save, [&](Waiter &operationWaiter, OperationReport &report) {
        saved = SaveOperation(operationContext(operationWaiter, report)).startSaveOnRepository();
    });
    return saved;
}

void VYXSaveRestore::startSaveOnRepository(int taskId)
{
    if (operations.isLooking()) {
        // The next occasion may be a day away.
        if (!std::exchange(scheduledSaveWaits, true)) {
            operations.whenFree([=, this] {
                scheduledSaveWaits = false;
                startSaveOnRepository(taskId);
            });
        }
        return;
    }
    if (!settings.enabled) {
        logDebug("Save/Restore is disabled: abort");
    } else if (repository == nullptr) {
        logError("Repository URL not provided!");
    } else {
        startSaveOnRepository();
    }
    showStatus();
}

void VYXSaveRestore::startRestoreFromRepository()
{
    operations.run(Operation::Restore, [this](Waiter &operationWaiter, OperationReport &report) {
        RestoreOperation(operationContext(operationWaiter, report)).startRestoreFromRepository();
    });
}

bool VYXSaveRestore::reset(bool toDefault)
{
    const auto kind = toDefault ? ResetOperation::Kind::ToDefault : ResetOperation::Kind::ToFactory;
    bool reboot = false;
    operations.run(Operation::Reset, [&](Waiter &operationWaiter, OperationReport &report) {
        ResetOperation operation(kind, knownModules, *this, operationWaiter,
                                 toDefault ? limits.defaultReset : limits.factoryReset);
        operation.run();
        reboot = operation.needsReboot();
        for (const QString &module : operation.silentModules()) {
            report.noteFailed({module, {}, "It did not report in time"});
        }
        if (operationWaiter.mustEnd()) {
            report.end(Outcome::Code::Stopped);
        }
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
    operations.whenFree([=, this] {
        schedule.setSaveFrequency(hour, minute, frequency, enable);
        showStatus();
    });
}

QString VYXSaveRestore::printRestorableFiles()
{
    return restorableListing(knownModules.objects());
}
