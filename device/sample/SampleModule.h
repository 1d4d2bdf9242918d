#pragma once

#include "platform/core/VYXModule.h"

#include <QString>

/// How a sample module behaves.
struct SampleModuleOptions
{
    bool ignorePause = false; ///< answers no save, restore or reset request
    int pauseDelayMs = 0;     ///< how long it takes to get ready for a pause
    QString writtenDatabase;  ///< name of the database it keeps writing to; empty for none
};

/// A module of any name that has data and does what a well-behaved module does when they are saved.
///
/// At its first start it creates its data from the recipe of its name, if there is one, below
/// "recipe" of the library root.
class SampleModule : public VYXModule
{
    Q_OBJECT

public:
    SampleModule(const QString &name, SampleModuleOptions options);

    bool Init() override;
    bool Run() override;
    void preSaveForSaveRestore() override;

protected:
    bool answersDataRequests() const override { return !options.ignorePause; }

private:
    SampleModuleOptions options;
};
