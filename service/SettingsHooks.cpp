#include "platform/logger/VYXLogger.h"
#include "repository/Repository.h"
#include "repository/RepositoryUrl.h"
#include "service/VYXSaveRestore.h"

std::optional<QString> VYXSaveRestore::readSetting(const QString &name)
{
    const RemoteCallResult result = callModule("SettingsManager", "getSettingValue", {name}, waiter);
    if (result.failed()) {
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
        settings = settings.withSchedule(schedule->toInt());
        refreshSaveFrequency();
        logInfo("Change Save/Restore schedule time/frequency: %1", settings.schedule);
    }
    if (const auto type = readSetting("SaveRestoreScheduleType")) {
        applyScheduleType(type->toInt());
    }
}

void VYXSaveRestore::setSaveRestoreLevel(int level)
{
    logInfo("Change Save/Restore level: %1", levelName(level));
    settings = settings.withLevel(level, hasRepositoryUrl());
    checkCapability();
}

void VYXSaveRestore::setSaveRestorePriority(bool high, bool normal, bool low)
{
    settings = settings.withPriorities({high, normal, low});
}

void VYXSaveRestore::setSaveRestoreHighPriority(bool high)
{
    setSaveRestorePriority(high, settings.priorities.normal, settings.priorities.low);
}

void VYXSaveRestore::setSaveRestoreNormalPriority(bool normal)
{
    setSaveRestorePriority(settings.priorities.high, normal, settings.priorities.low);
}

void VYXSaveRestore::setSaveRestoreLowPriority(bool low)
{
    setSaveRestorePriority(settings.priorities.high, settings.priorities.normal, low);
}

ListSetting VYXSaveRestore::saveRestoreLevelChanged(Setting setting)
{
    setSaveRestoreLevel(setting.getValue().toInt());
    return {};
}

ListSetting VYXSaveRestore::repositoryUrlChanged(Setting setting)
{
    const QString url = setting.getValue();
    logInfo("Change Save/Restore url: %1", url.isEmpty() ? QString("none") : RepositoryUrl::forDisplay(url));
    // Before the set-up, which waits: what is set meanwhile is the later wish.
    settings = settings.withRepository(!url.isEmpty());
    if (!url.isEmpty()) {
        setRepositoryUrl(url);
    }
    checkCapability();
    return {};
}

ListSetting VYXSaveRestore::saveRestoreScheduleChanged(Setting setting)
{
    settings = settings.withSchedule(setting.getValue().toInt());
    logInfo("Change Save/Restore hour: %1", settings.schedule);
    refreshSaveFrequency();
    return {};
}

void VYXSaveRestore::applyScheduleType(int type)
{
    if (const QString name = scheduleTypeName(type); !name.isEmpty()) {
        logInfo("Change Save/Restore schedule type: %1", name);
    }
    settings = settings.withScheduleType(type);
    refreshSaveFrequency();
}

ListSetting VYXSaveRestore::saveRestoreScheduleTypeChanged(Setting setting)
{
    applyScheduleType(setting.getValue().toInt());
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

void VYXSaveRestore::setSaveRestoreSchedule(int schedule, bool type, bool activate)
{
    settings.schedule = schedule;
    settings.scheduleType = !activate ? Settings::Disabled : type ? Settings::Frequency : Settings::Time;
}

QString VYXSaveRestore::printSettings()
{
    return settings.text(repository ? RepositoryUrl::forDisplay(repository->getRepositoryUrl()) : QString());
}
