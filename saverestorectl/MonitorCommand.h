#pragma once

#include "saverestorectl/Command.h"
#include "saverestorectl/ProgressDisplay.h"
#include "saverestorectl/ReportPage.h"

/// Watches what the service does, whoever asked for it, and writes a page about it.
class MonitorCommand : public Command
{
    Q_OBJECT

public:
    MonitorCommand(const CommandLine &commandLine, ServiceConnection &service, Output &output);

    void begin() override;
    void interrupt(int signal) override;
    void resize() override { display.redraw(); }

private:
    void show();
    void end(const JobSummary &summary);
    /// Ask what the repository holds as soon as nothing runs.
    void look();
    void takeList(const ServiceConnection::Answer &answer);
    void finishLook();
    bool writePage();
    bool isPageWanted() const { return !line.page.isEmpty(); }

    ProgressDisplay display;
    ReportPage page;
    QTimer nextLook;
    std::optional<QList<RepositoryItem>> held; ///< by the repository, when it was looked at last
    bool hasEnded = false;                     ///< a job, whose outcome in the repository is not known yet
    int looksLeft = 0;
};
