#pragma once

#include "device/manager/ModulesConfiguration.h"
#include "platform/records/ApplicationConfig.h"

#include <QObject>
#include <QProcess>

/// One module of the device and its process, which never outlives the ApplicationManager.
class ModuleProcess : public QObject
{
    Q_OBJECT

public:
    ModuleProcess(ModuleDefinition definition, QObject *parent);
    ~ModuleProcess() override;

    QString getName() const { return definition.name; }
    bool isRunning() const;

    /// What the ApplicationManager reports of the module now.
    ApplicationConfig describe() const;
    void setRelease(const QString &release, const QString &version);

    /// Start the process unless it runs. False when it could not be started.
    bool start();

    /// Ask the process to end, also a paused one, without waiting; it is killed when it has not ended after 3
    /// s.
    void requestEnd();

    /// Wait for the end of a process that was asked to; one that takes longer than `milliseconds` is killed.
    /// False when even that did not help within a second.
    bool waitForEnd(int milliseconds);

private:
    void ended(int exitCode, QProcess::ExitStatus status);

    ModuleDefinition definition;
    QProcess process;
    bool endRequested = false;
};
