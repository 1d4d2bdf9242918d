#pragma once

#include "platform/core/VYXModule.h"

#include <QString>

/// How a sample module behaves.
struct SampleModuleOptions
{
    bool ignorePause = false; ///< answers no save or restore request
    bool ignoreReset = false; ///< answers no reset request
    bool needsReboot = false; ///< asks for a reboot after a reset
    int pauseDelayMs = 0;     ///< how long it takes to get ready for a pause
    QString writtenDatabase;  ///< name of the database it keeps writing to; empty for none
};

/// A module of any name that has data and does what a well-behaved module does when they are saved or reset.
///
/// At its first start it creates its data from the recipe of its name, if there is one, below
/// "recipe" of the library root; from the same recipe it resets its files. Its databases are reset by the
/// commands of its restorable.xml.
class SampleModule : public VYXModule
{
    Q_OBJECT

public:
    SampleModule(const QString &name, SampleModuleOptions options);

    bool Init() override;
    bool Run() override;
    void preSaveForSaveRestore() override;
    bool restoreDataToDefault() override;
    bool restoreDataToFactory() override;

protected:
    bool answersPauseRequests() const override { return !options.ignorePause; }
    bool answersResetRequests() const override { return !options.ignoreReset; }

private:
    QString recipe() const;
    QString dataDirectory() const;

    SampleModuleOptions options;
};
