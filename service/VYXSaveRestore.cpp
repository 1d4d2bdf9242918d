#include "service/VYXSaveRestore.h"

#include "dbus/VYXSaveRestoreAdaptor.h"
#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"
#include "platform/records/TimePattern.h"
#include "restorable/RestorableListing.h"
#include "restore/LiveData.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QRandomGenerator>

#include <utility>

using namespace std::chrono_literals;

namespace {

VYXSaveRestore *singleton = nullptr;

constexpr auto transferInactivityLimit = 60s;

} // namespace

VYXSaveRestore *VYXSaveRestore::instance(const ServiceLimits &limits)
{
    if (singleton == nullptr) {
        singleton = new VYXSaveRestore(limits);
    }
    return singleton;
}

VYXSaveRestore::VYXSaveRestore(const ServiceLimits &limits)
    : VYXModule("VYXSaveRestore"), knownModules(*this), pauses(*this, limits.pause), schedule(*this, waiter),
      limits(limits)
{
}

QString VYXSaveRestore::printRestorableFiles()
{
    return restorableListing(knownModules.objects());
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
    createWorkingDirectories();
    LiveData::recoverAll(DevicePaths::dataRoot());
    pauses.start();

    repository = nullptr;
    pendingOperations = 0;
    devMode = false;

    connect(this, &VYXSaveRestore::start_priority_save, this,
            &VYXSaveRestore::startSaveOnRepositoryForPriority);
    connect(this, &VYXSaveRestore::start_post_on_repository, this, &VYXSaveRestore::postOnRepository);
    connect(this, &VYXSaveRestore::start_priority_restore, this,
            &VYXSaveRestore::startRestoreFromRepositoryForPriority);
    // Nothing is on the stack any more when the event loop has ended.
    connect(QCoreApplication::instance(), &QCoreApplication::aboutToQuit, this,
            [this] { delete std::exchange(repository, nullptr); });
    subscribeEvent("reset_default_done", this, [this](const VYXEvent &event) { moduleResetDone(event); });
    subscribeEvent("reset_factory_done", this, [this](const VYXEvent &event) { moduleResetDone(event); });

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
    if (!knownModules.objects().isEmpty()) {
        knownModules.computeSaveGroups();
    }
    checkCapability();
    return true;
}

bool VYXSaveRestore::Stop()
{
    logDebug("Stop");
    return true;
}

void VYXSaveRestore::createWorkingDirectories()
{
    createWorkingDirectory(DevicePaths::stagingRoot(), "Save temp directory '%1' does not exist, creating.");
    createWorkingDirectory(DevicePaths::restoreDirectory(),
                           "Restore temp directory '%1' does not exist, creating.");
}

void VYXSaveRestore::createWorkingDirectory(const QString &path, const char *warning)
{
    if (QDir(path).exists()) {
        return;
    }
    logWarning(warning, path);
    QDir().mkpath(path);
    QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

void VYXSaveRestore::httpRequestFinished()
{
    requestFinished = true;
}

void VYXSaveRestore::httpOperationDone()
{
    // Sends complete in the order in which they were asked for, the uncounted ones before the counted.
    if (uncountedSends > 0) {
        --uncountedSends;
        return;
    }
    --pendingOperations;
}

bool VYXSaveRestore::getFileAndWait(const QString &file, const QString &directory, bool wait)
{
    const int generation = repositoryGeneration;
    requestFinished = false;
    const bool accepted = repository->getFileFromRepository(file, directory);
    if (!wait) {
        return true;
    }
    const WaitOutcome outcome = waiter.waitUntil(
        [&] {
            return requestFinished || generation != repositoryGeneration || !repository->hasPendingRequests();
        },
        transferInactivityLimit, [this] { return repository->transferProgress(); });
    if (outcome != WaitOutcome::Met || generation != repositoryGeneration) {
        logError("The request for '%1' was not finished by the repository", file);
        return false;
    }
    return accepted && QFile::exists(directory);
}

void VYXSaveRestore::refreshSaveFrequency()
{
    constexpr int lastMinute = 4;
    const int minute = QRandomGenerator::global()->bounded(lastMinute + 1);
    const bool frequency = settings.scheduleType == Settings::Frequency;
    setSaveFrequency(settings.schedule, minute, frequency, settings.scheduleType != Settings::Disabled);
}

void VYXSaveRestore::setSaveFrequency(int hour, int minute, bool frequency, bool enable)
{
    schedule.setSaveFrequency(hour, minute, frequency, enable);
}

void VYXSaveRestore::startSaveOnRepository(int)
{
    if (!settings.enabled) {
        logDebug("Save/Restore is disabled: abort");
        return;
    }
    if (repository == nullptr) {
        logError("Repository URL not provided!");
        return;
    }
    startSaveOnRepository();
}
