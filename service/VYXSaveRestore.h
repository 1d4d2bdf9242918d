#pragma once

#include "outcome/ItemListing.h"
#include "pause/PauseKeeper.h"
#include "platform/core/VYXModule.h"
#include "platform/core/Waiter.h"
#include "platform/records/Setting.h"
#include "platform/records/UpdateReport.h"
#include "restorable/KnownModules.h"
#include "service/ControlStatus.h"
#include "service/OperationSlot.h"
#include "service/Schedule.h"
#include "service/Settings.h"

#include <chrono>
#include <memory>
#include <optional>

class Repository;
struct JobOptions;
struct OperationContext;

/// How long the service waits for others.
struct ServiceLimits
{
    PauseLimits pause;
    std::chrono::milliseconds defaultReset =
        std::chrono::seconds(20); ///< for the reports of a reset to default
    std::chrono::milliseconds factoryReset = std::chrono::seconds(120); ///< and of one to factory
    std::chrono::milliseconds serverSilence =
        std::chrono::seconds(30); ///< in which nothing moves, before a server is asked once more
};

/// The module object of the save/restore service: what it offers on the bus, and what outlives an operation.
///
/// Everything runs on the main thread, in slots. A save, restore or reset is one synchronous slot call that
/// serves events where it waits; one of them runs at a time, as an object that owns everything that belongs
/// to the run. What is set while one runs holds for the next.
class VYXSaveRestore : public VYXModule
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.corvane.Pelorin.VYXInterface")

public:
    /// The one object of the process, created on first use, with the limits of that call.
    static VYXSaveRestore *instance(const ServiceLimits &limits = {});
    ~VYXSaveRestore() override;

    bool Check() override;
    bool Deploy() override;
    bool Init() override;
    bool Run() override;
    bool Stop() override;

public Q_SLOTS:
    /// Run a save. False when it was refused or broken off; a failed upload shows a pop-up and is still true.
    bool startSaveOnRepository();
    /// The Scheduler's entry; the task id is not looked at. It waits for the end of what only looks.
    void startSaveOnRepository(int taskId);
    /// Run a restore; what came of it is told by the log, pop-ups and the event "restore_finished".
    void startRestoreFromRepository();
    /// Reset all modules' data to their default state; true when a module asks for a reboot, false also when
    /// the reset was refused. Modules that do not report in time are named in the log.
    bool resetToDefault();
    /// Reset all modules' data to their factory state, then have the ApplicationManager stop the modules.
    void resetToFactory();
    /// Choose the repository by its URL; false for an empty one. Another URL than the present one ends the
    /// save or restore that runs.
    bool setRepositoryUrl(QString url);
    /// 0 none, 1 mandatory, 2 all; any other level acts as none.
    void setSaveRestoreLevel(int level);
    void setSaveRestorePriority(bool high, bool normal, bool low);
    void setSaveRestoreHighPriority(bool high);
    void setSaveRestoreNormalPriority(bool normal);
    void setSaveRestoreLowPriority(bool low);
    /// Store the schedule; `refreshSaveFrequency` applies it. `type` true is a period, false an hour of the
    /// day.
    void setSaveRestoreSchedule(int schedule, bool type, bool activate);
    /// Replace the Scheduler's task: at `hour` o'clock, or every `hour` hours when `frequency` is true. While
    /// an operation runs, that is done when it has ended.
    void setSaveFrequency(int hour, int minute, bool frequency, bool enable);
    void refreshSaveFrequency();
    QString printRestorableFiles();
    QString printSettings();
    ListSetting repositoryUrlChanged(Setting setting);
    ListSetting saveRestoreLevelChanged(Setting setting);
    ListSetting saveRestoreScheduleChanged(Setting setting);
    ListSetting saveRestoreScheduleTypeChanged(Setting setting);
    UpdateReport saveRestoreScheduleValidation(Setting setting);

    // The control interface: its description says what they do. All throw a ControlError.
    uint Save(const QVariantMap &options);
    uint Restore(const QVariantMap &options);
    uint Verify(const QVariantMap &options);
    void Cancel();
    ItemList List();
    PreviewList Preview();

Q_SIGNALS:
    void Finished(uint job, const QString &operation, const QString &code, const QVariantMap &summary);

protected:
    bool answersPauseRequests() const override { return false; }

private Q_SLOTS:
    void checkCapability();

private:
    explicit VYXSaveRestore(const ServiceLimits &limits);

    Capability computedCapability() const;
    bool hasRepositoryUrl() const;
    void readSettings();
    std::optional<QString> readSetting(const QString &name);
    void applyScheduleType(int type);
    std::shared_ptr<Repository> makeRepository(const QString &url) const;
    void showStatus();
    OperationContext operationContext(Waiter &operationWaiter, OperationReport &report);
    OperationContext jobContext(Waiter &operationWaiter, OperationReport &report, const JobOptions &options);
    bool reset(bool toDefault);

    ServiceLimits limits;
    Waiter waiter; ///< for what belongs to no operation
    Settings settings;
    std::shared_ptr<Repository> repository; ///< null until a URL was set
    KnownModules knownModules;
    PauseKeeper pauses;
    Schedule schedule;
    OperationSlot operations;
    ControlStatus control;
    bool scheduledSaveWaits = false; ///< for the end of what only looks
};
