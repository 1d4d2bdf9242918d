#include "device/settings/SettingsManager.h"

#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"

#include <memory>

namespace {

struct SettingHooks
{
    QString validation;
    QString change;
};

SettingHooks hooksOf(const QString &setting)
{
    static const QMap<QString, SettingHooks> hooks = {
        {"SaveRestoreUrl", {{}, "repositoryUrlChanged"}},
        {"SaveRestoreLevel", {{}, "saveRestoreLevelChanged"}},
        {"SaveRestoreSchedule", {"saveRestoreScheduleValidation", "saveRestoreScheduleChanged"}},
        {"SaveRestoreScheduleType", {{}, "saveRestoreScheduleTypeChanged"}},
    };
    return hooks.value(setting);
}

UpdateReport report(bool valid, const QString &message)
{
    UpdateReport result;
    result.setValid(valid);
    result.setMessage(message);
    return result;
}

} // namespace

SettingsManager::SettingsManager()
    : VYXModule("SettingsManager"), store(DevicePaths::configurationRoot() + "/settings.conf")
{
}

bool SettingsManager::Init()
{
    registerDBusSetting();
    registerDBusUpdateReport();
    registerDBusCapability();
    if (!store.load()) {
        logError("Could not read the settings");
        return false;
    }
    return true;
}

QString SettingsManager::getSettingValue(const QString &name)
{
    const std::optional<QString> value = store.value(name);
    if (!value && calledFromDBus()) {
        sendErrorReply(QDBusError::InvalidArgs, "unknown setting '" + name + "'");
    }
    return value.value_or(QString());
}

UpdateReport SettingsManager::setSettingValue(const QString &name, const QString &value)
{
    if (!SettingsStore::isStorable(name, value)) {
        return report(false, "the name or the value of the setting cannot be stored");
    }
    const Setting setting(name, value);
    const SettingHooks hooks = hooksOf(name);
    UpdateReport verdict = validate(hooks.validation, setting).value_or(report(true, {}));
    if (!verdict.isValid()) {
        return verdict;
    }
    if (!store.setValue(name, value)) {
        logError("Could not store the setting '%1'", name);
        return report(false, "the setting could not be stored");
    }
    logInfo("Setting '%1' changed to '%2'", name, value);
    announce(hooks.change, setting);
    return verdict;
}

std::optional<UpdateReport> SettingsManager::validate(const QString &hook, const Setting &setting)
{
    const std::optional<QVariant> answer = callHook(hook, setting);
    return answer ? std::optional(qdbus_cast<UpdateReport>(*answer)) : std::nullopt;
}

void SettingsManager::announce(const QString &hook, const Setting &setting)
{
    const std::optional<QVariant> answer = callHook(hook, setting);
    if (!answer) {
        return;
    }
    for (const Setting &consequence : qdbus_cast<ListSetting>(*answer)) {
        if (!store.setValue(consequence.getName(), consequence.getValue())) {
            logWarning("Could not store the setting '%1' that a change brings along", consequence.getName());
        }
    }
}

std::optional<QVariant> SettingsManager::callHook(const QString &hook, const Setting &setting)
{
    if (hook.isEmpty()) {
        return std::nullopt;
    }
    try {
        const QDBusMessage reply = syncRemoteCall("VYXSaveRestore", hook, {QVariant::fromValue(setting)});
        if (reply.type() == QDBusMessage::ReplyMessage && reply.arguments().size() == 1) {
            return reply.arguments().constFirst();
        }
        logWarning("The hook '%1' failed: %2", hook, reply.errorMessage());
    } catch (VYXException *raised) {
        const std::unique_ptr<VYXException> exception(raised);
        logWarning("The hook '%1' was not called: %2", hook, exception->getMessage());
    }
    return std::nullopt;
}
