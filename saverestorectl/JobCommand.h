#pragma once

#include "saverestorectl/Command.h"
#include "saverestorectl/ProgressDisplay.h"

/// A save, restore or verify: started, watched to its end, and cancelled when the user wants it to end.
class JobCommand : public Command
{
    Q_OBJECT

public:
    JobCommand(const CommandLine &commandLine, ServiceConnection &service, Output &output);

    void begin() override;
    void interrupt(int signal) override;
    void resize() override { display.redraw(); }

private:
    QVariantMap options() const;
    void started(quint32 number);
    void show();
    void cancel();
    void end(const JobSummary &summary);
    void lookAfterJob();
    void missEnd();

    ProgressDisplay display;
    QTimer looks;
    QList<JobSummary> earlyEnds; ///< that came before the number of the job
    quint32 job = 0;
    bool wantsEnd = false;
    int silentLooks = 0;
};
