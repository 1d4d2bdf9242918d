#include "platform/logger/VYXLogger.h"
#include "repository/RepositoryUrl.h"
#include "service/VYXSaveRestore.h"

namespace {

const char *const capabilityName = "SAVE_RESTORE_ENABLE";

} // namespace

std::optional<QString> VYXSaveRestore::readSetting(const QString &name)
{
    const RemoteCallResult result = callModule("SettingsManager", "getSettingValue", {name}, waiter);
    if (result.outcome == RemoteCallResult::Unreachable) {
        logError("Could not retrieve setting %1", name);
        return std::nullopt;
    }
    return result.value.toString();
}

void VYXSaveRestore::readSettings()
{
    if (const auto url = readSetting("SaveRestoreUrl")) {
        if (*url != "UNDEFINED") {
            logInfo("SaveRestore url: '%1'", RepositoryUrl::forDisplay(*url));
            setRepositoryUrl(*url);
        } else {
            logInfo("Undefined default value for SaveRestoreUrl Setting");
        }
    }
    if (const auto level = readSetting("SaveRestoreLevel")) {
        setSaveRestoreLevel(level->toInt());
    }
    if (const auto schedule = readSetting("SaveRestoreSchedule")) {
        saveSchedule = schedule->toInt();
        refreshSaveFrequency();
        logInfo("Change Save/Restore schedule time/frequency: %1", saveSchedule);
    }
    if (const auto type = readSetting("SaveRestoreScheduleType")) {
        applyScheduleType(type->toInt());
        refreshSaveFrequency();
    }
}

bool VYXSaveRestore::hasRepositoryUrl()
{
    return repository != nullptr && !repository->getRepositoryUrl().isEmpty();
}

Capability VYXSaveRestore::computedCapability()
{
    return {capabilityName,
            saveRestoreEnabled && hasRepositoryUrl() ? Capability::AVAILABLE : Capability::UNAVAILABLE};
}

void VYXSaveRestore::checkCapability()
{
    const Capability current = getCapability(capabilityName);
    const Capability computed = computedCapability();
    const bool available = computed.getState() == Capability::AVAILABLE;
    if (available) {
        logDebug("Capability AVAILABLE (%1)", RepositoryUrl::forDisplay(repository->getRepositoryUrl()));
    }
    const char *const state = available ? "AVAILABLE" : "UNAVAILABLE";
    if (current.getState() == computed.getState()) {
        logDebug("Capability unchange: %1", state);
    } else {
        logInfo("Capability change: %1", state);
    }
    setCapability(computed);
}

void VYXSaveRestore::setSaveRestoreEnabled(bool enable)
{
    saveRestoreEnabled = enable;
    checkCapability();
}

void VYXSaveRestore::setSaveRestoreLevel(int level)
{
    const bool mandatory = level == 1;
    const bool all = level == 2;
    logInfo("Change Save/Restore level: %1", mandatory ? "mandatory" : all ? "all" : "none");
    if (!mandatory && !all) {
        setSaveRestoreEnabled(false);
    } else if (hasRepositoryUrl()) {
        setSaveRestoreEnabled(true);
    }
    setSaveRestorePriority(mandatory || all, all, all);
    checkCapability();
}

void VYXSaveRestore::setSaveRestorePriority(bool high, bool normal, bool low)
{
    highPriority = high;
    normalPriority = normal;
    lowPriority = low;
}

void VYXSaveRestore::setSaveRestoreHighPriority(bool high)
{
    highPriority = high;
}

void VYXSaveRestore::setSaveRestoreNormalPriority(bool normal)
{
    normalPriority = normal;
}

void VYXSaveRestore::setSaveRestoreLowPriority(bool low)
{
    lowPriority = low;
}

ListSetting VYXSaveRestore::saveRestoreLevelChanged(Setting setting)
{
    setSaveRestoreLevel(setting.getValue().toInt());
    return {};
}

ListSetting VYXSaveRestore::saveRestoreScheduleChanged(Setting setting)
{
    saveSchedule = setting.getValue().toInt();
    logInfo("Change Save/Restore hour: %1", saveSchedule);
    refreshSaveFrequency();
    return {};
}

void VYXSaveRestore::applyScheduleType(int type)
{
    switch (type) {
    case 0:
        logInfo("Change Save/Restore schedule type: cancel scheduled task");
        break;
    case 1:
        logInfo("Change Save/Restore schedule type: frequency");
        break;
    case 2:
        logInfo("Change Save/Restore schedule type: time");
        break;
    default:
        return;
    }
    saveScheduleType = type;
}

ListSetting VYXSaveRestore::saveRestoreScheduleTypeChanged(Setting setting)
{
    applyScheduleType(setting.getValue().toInt());
    refreshSaveFrequency();
    return {};
}

UpdateReport VYXSaveRestore::saveRestoreScheduleValidation(Setting setting)
{
    UpdateReport report;
    report.setValid(true);
    report.setRequiresReboot(0);
    const int value = setting.getValue().toInt();
    if (value < 1 || value > 24) {
        report.setValid(false);
        report.setMessage("Schedule time/frequency is invalid");
        logDebug("Invalid scheduled time: %1 not in [1,24]", value);
    }
    return report;
}

QString VYXSaveRestore::printSettings()
{
    QString text = QString("Save/Restore enabled: %1\n").arg(saveRestoreEnabled ? "true" : "false");
    if (highPriority) {
        text += QString("Save/Restore level: %1\n").arg(normalPriority && lowPriority ? "all" : "mandatory");
    }
    text +=
        QString("Save/Restore url: %1\n").arg(repository != nullptr ? repository->getRepositoryUrl() : "");
    text += QString("Schedule hour: %1\n").arg(saveSchedule);
    switch (saveScheduleType) {
    case 0:
        return text + "Schedule type: Disabled\n";
    case 1:
        return text + "Schedule type: Frequency\n";
    case 2:
        return text + "Schedule type: Time\n";
    default:
        return text;
    }
}
