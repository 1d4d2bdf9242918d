#pragma once

#include "device/manager/ModuleProcess.h"
#include "platform/core/VYXModule.h"
#include "platform/records/ApplicationConfig.h"

#include <QList>

/// Starts the device's modules, watches them and reports them to whoever asks.
///
/// The modules stand in modules.conf below the configuration root. A module that ends is not started again;
/// it stays in the list with the id "0" and the state "STOPPED". All modules end with the manager.
class ApplicationManager : public VYXModule
{
    Q_OBJECT

public:
    ApplicationManager();

    bool Init() override;
    bool Run() override;
    bool Stop() override;

public Q_SLOTS:
    ListApplicationConfig getModulesList();

    /// Run the module's migration program with the three texts as its arguments; returns at once.
    void migratForRestore(const QString &module, const QString &savedRelease, const QString &release);

    /// End all modules; returns at once.
    void stopAll();

    /// Start a module that does not run; true when it runs then.
    bool startModule(const QString &module);

    /// End a module and wait until it has ended, at most 4 s; true when it has.
    bool stopModule(const QString &module);

    /// Change what is reported of a module, until the manager ends; false for an unknown module.
    bool setModuleRelease(const QString &module, const QString &release, const QString &version);

private:
    ModuleProcess *find(const QString &module) const;

    QList<ModuleProcess *> modules;
};
