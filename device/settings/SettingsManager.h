#pragma once

#include "device/settings/SettingsStore.h"
#include "platform/core/VYXModule.h"
#include "platform/records/Setting.h"
#include "platform/records/UpdateReport.h"

#include <optional>

/// Keeps the device's settings and tells the module a setting belongs to when it changes.
class SettingsManager : public VYXModule
{
    Q_OBJECT

public:
    SettingsManager();

    bool Init() override;

public Q_SLOTS:
    /// The value of a setting; an unknown one is answered with an error.
    QString getSettingValue(const QString &name);

    /// Change a setting: its module's validation hook is asked, the value stored, then the change hook
    /// called. A report that is not valid says why nothing was stored. A module that cannot be asked does not
    /// keep the value from being stored.
    UpdateReport setSettingValue(const QString &name, const QString &value);

private:
    std::optional<UpdateReport> validate(const QString &hook, const Setting &setting);
    void announce(const QString &hook, const Setting &setting);
    std::optional<QVariant> callHook(const QString &hook, const Setting &setting);

    SettingsStore store;
};
