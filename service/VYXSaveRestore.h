#pragma once

#include "catalogue/ChecksumComparison.h"
#include "catalogue/SavedVersion.h"
#include "pause/PauseKeeper.h"
#include "platform/core/VYXModule.h"
#include "platform/core/Waiter.h"
#include "platform/records/ApplicationConfig.h"
#include "platform/records/Setting.h"
#include "platform/records/UpdateReport.h"
#include "repository/RepositoryManager.h"
#include "restorable/KnownModules.h"
#include "restorable/SaveGroups.h"
#include "restore/DownloadList.h"
#include "service/Schedule.h"
#include "service/Settings.h"

#include <QList>
#include <QMap>
#include <QSet>
#include <QString>
#include <QStringList>

#include <chrono>
#include <optional>

/// How long the service waits for other modules.
struct ServiceLimits
{
    PauseLimits pause;
    std::chrono::milliseconds defaultReset =
        std::chrono::seconds(20); ///< for the reports of a reset to default
    std::chrono::milliseconds factoryReset = std::chrono::seconds(120); ///< and of one to factory
};

/// The module object of the save/restore service.
///
/// Everything runs on the main thread, in slots. A save or restore is one synchronous slot call that
/// dispatches events where it waits; one of them runs at a time. Each group of operations is implemented in
/// the folder of its subsystem.
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

Q_SIGNALS:
    void start_priority_save(RestorableObject::RestorablePriority priority);
    void start_post_on_repository();
    void start_priority_restore(RestorableObject::RestorablePriority priority);
    void start_migration_process();

public Q_SLOTS:
    /// Run a save. False when it was refused or broken off; a failed upload shows a pop-up and is still true.
    bool startSaveOnRepository();
    /// The Scheduler's entry; the task id is not looked at.
    void startSaveOnRepository(int taskId);
    /// Run a restore; what came of it is told by the log, pop-ups and the event "restore_finished".
    void startRestoreFromRepository();
    /// Reset all modules' data to their default state; true when a module asks for a reboot, false also when
    /// the reset was refused. Modules that do not report in time are named in the log.
    bool resetToDefault();
    /// Reset all modules' data to their factory state, then have the ApplicationManager stop the modules.
    void resetToFactory();
    /// Choose the repository by its URL; false for an empty one.
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
    /// Replace the Scheduler's task: at `hour` o'clock, or every `hour` hours when `frequency` is true.
    void setSaveFrequency(int hour, int minute, bool frequency, bool enable);
    void refreshSaveFrequency();
    QString printRestorableFiles();
    QString printSettings();
    ListSetting repositoryUrlChanged(Setting setting);
    ListSetting saveRestoreLevelChanged(Setting setting);
    ListSetting saveRestoreScheduleChanged(Setting setting);
    ListSetting saveRestoreScheduleTypeChanged(Setting setting);
    UpdateReport saveRestoreScheduleValidation(Setting setting);

protected:
    bool answersPauseRequests() const override { return false; }

private Q_SLOTS:
    void checkCapability();
    void moduleResetDone(VYXEvent evt);
    bool startSaveOnRepositoryForPriority(RestorableObject::RestorablePriority priority);
    void startRestoreFromRepositoryForPriority(RestorableObject::RestorablePriority priority);
    void postOnRepository();
    bool getFromRepository();
    void httpRequestFinished();
    void httpOperationDone();

private:
    /// A line of the download list of a module.
    struct PlannedLine
    {
        QString module;
        DownloadLine line;
    };
    struct UploadRun;
    struct RestorePlan;

    explicit VYXSaveRestore(const ServiceLimits &limits);

    // service: life cycle, settings, schedule, choice of repository
    static void createWorkingDirectory(const QString &path, const char *warning);
    static void createWorkingDirectories();
    Capability computedCapability() const;
    bool hasRepositoryUrl() const;
    void readSettings();
    std::optional<QString> readSetting(const QString &name);
    void applyScheduleType(int type);
    bool refuseSecondOperation(bool acquired);
    bool isDevMode();
    void useLocalRepository(const QString &url);
    void useDistantRepository(const QString &url);
    void replaceRepository(RepositoryManager *replacement);
    bool repositoryIsUsable(const QString &operation);
    /// Fetch one entry into a local file. With `wait`, true when it has arrived.
    bool getFileAndWait(const QString &file, const QString &directory, bool wait);

    // save: staging
    void cleanSaveDirectory();
    void stageFiles(const QStringList &modules, RestorableObject::RestorablePriority priority);
    void copyDatabasesIntoTemp(const QStringList &modules);
    void dumpDatabases(const QStringList &modules);

    // save: orchestration
    bool saveIsPossible();
    bool prepareSave();
    bool runSavePasses();
    void stageVersionFiles();
    bool stageGroupDatabases(const QStringList &group, const QStringList &staged);
    void saveMigrationBinaries(const QStringList &modules);
    void sendMigrationProgram(const QString &module);

    // save: upload
    void fetchPreviousList(UploadRun &run);
    void fetchPreviousState(UploadRun &run);
    void sendVersionFiles(UploadRun &run);
    void completeChecksumFiles(UploadRun &run);
    void compareModule(UploadRun &run, const QString &module);
    void sendHeldChecksumFiles(UploadRun &run);
    void sendArtefacts(UploadRun &run);
    void sendPlainFiles(UploadRun &run);
    void sendPlainFile(UploadRun &run, const QString &module, const ChecksumLine &line);
    QString plainFileSource(UploadRun &run, const QString &module, const ChecksumLine &line);
    void removeDeletedFiles(UploadRun &run);
    void sendFinalChecksumFiles(UploadRun &run);
    void waitForSends(UploadRun &run);
    bool sendCounted(UploadRun &run, const QString &path, const QString &prefix);
    void reportUpload(UploadRun &run);

    // restore: planning
    void cleanRestoreDirectory();
    void fetchSavedState(RestorePlan &plan, const QStringList &modules);
    void fetch(RestorePlan &plan, const QString &entry, const QString &path);
    void noteFailedRequests(RestorePlan &plan);
    void planModule(RestorePlan &plan, const QString &module);
    std::optional<DownloadLine> planItem(RestorePlan &plan, const QString &module, const QString &key,
                                         const ChecksumEntry &entry);
    DownloadLine planArtefact(RestorePlan &plan, const SavedItem &item);
    ChecksumEntries compareChecksumFiles(const QString &localPath, const QString &repositoryPath,
                                         bool forSave);

    // restore: orchestration, application of data, migration
    bool restoreIsPossible();
    bool isRestoreBrokenOff();
    void runRestorePasses();
    QList<PlannedLine> readDownloadLists(const QStringList &modules, const QString &priorityName);
    void restoreGroup(const QStringList &group, const QList<PlannedLine> &lines, bool high);
    bool restoreDatabase(const PlannedLine &planned);
    bool restoreDirectory(const PlannedLine &planned);
    bool restoreFile(const PlannedLine &planned);
    bool checkVersions(QList<Migration> &migrations);
    void startMigrations(const QStringList &modules, const QList<Migration> &migrations);

    // reset
    void runAllResetCommands(const char *announcement, SqlCommands (RestorableObject::*commands)() const);
    static void runResetCommands(const QString &module, const SqlCommands &commands);
    /// Publish the request and wait for the reports; false when the process is asked to end.
    bool requestResets(const QString &request, const QString &report, std::chrono::milliseconds limit);
    bool isModuleResetDone();
    void refreshListOfModulesToReset();

    Waiter waiter;
    KnownModules knownModules;
    PauseKeeper pauses;
    RepositoryManager *repository = nullptr;
    QMap<QString, bool> resetModules;
    bool resetNeedsReboot = false;
    Settings settings;
    Priorities priorities; ///< of the running operation
    Schedule schedule;
    bool requestFinished = false;
    int pendingOperations = 0;
    bool devMode = false;

    bool operationRunning = false;
    bool stagingFailed = false;   ///< what was staged is not whole and must not replace what is saved
    int uncountedSends = 0;       ///< sends under way that `pendingOperations` leaves out
    int repositoryGeneration = 0; ///< changes whenever `repository` stands for another place
    int operationGeneration = 0;  ///< the generation with which the running restore began
    int failedItems = 0;          ///< items that the running restore could not put back
    QMap<QString, QString> plannedDirectories; ///< fetched archive to the directory that it is unpacked into
    QString expectedReport; ///< name of the only event that counts as a report; empty before any reset
    ServiceLimits limits;
};
