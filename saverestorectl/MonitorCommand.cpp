#include "saverestorectl/MonitorCommand.h"

#include "saverestorectl/SummaryText.h"

#include <QSaveFile>
#include <QSysInfo>

#include <chrono>

using namespace std::chrono_literals;

namespace {

constexpr qsizetype mostJobs = 50;
/// A list keeps others from beginning an operation meanwhile: whoever is about to begin the next one comes
/// first.
constexpr auto lookPeriod = 2s;
constexpr int mostLooks = 20;

} // namespace

MonitorCommand::MonitorCommand(const CommandLine &commandLine, ServiceConnection &service, Output &output)
    : Command(commandLine, service, output), display(service, output)
{
    connect(&service, &ServiceConnection::changed, this, &MonitorCommand::show);
    connect(&service, &ServiceConnection::finished, this, &MonitorCommand::end);
    nextLook.setSingleShot(true);
    connect(&nextLook, &QTimer::timeout, this, &MonitorCommand::look);
}

void MonitorCommand::begin()
{
    output.object("watching", {{"service", service.version()}, {"operation", service.operation()}});
    output.line("Watching the service " + service.version() +
                (service.isIdle() ? ", which does nothing" : ""));
    if (isPageWanted()) {
        QSaveFile file(line.page);
        if (!file.open(QIODevice::WriteOnly)) {
            fail({ExitStatus::CannotWrite, "CannotWrite",
                  QString("'%1' cannot be written: %2").arg(line.page, file.errorString())});
            return;
        }
        file.cancelWriting();
        look();
    }
    show();
}

void MonitorCommand::interrupt(int signal)
{
    leave(line.once ? ExitStatus::Interrupted + signal : ExitStatus::Success);
}

/// What only looks into the repository has no number.
void MonitorCommand::show()
{
    if (!service.isIdle() && service.job() != 0) {
        display.update();
    }
    if (output.isBroken()) {
        leave(ExitStatus::CannotWrite);
    }
}

void MonitorCommand::end(const JobSummary &summary)
{
    display.end();
    printSummary(summary, line.verbose, output);
    if (!isPageWanted()) {
        if (line.once) {
            leave(ExitStatus::ofCode(summary.code));
        }
        return;
    }
    page.jobs.append({summary, {}});
    if (page.jobs.size() > mostJobs) {
        page.jobs.removeFirst();
    }
    hasEnded = true;
    looksLeft = mostLooks;
    if (writePage()) {
        nextLook.start(lookPeriod);
    }
}

void MonitorCommand::look()
{
    if (!service.isIdle()) {
        nextLook.start(lookPeriod);
        return;
    }
    service.call("List", {}, [this](const ServiceConnection::Answer &answer) { takeList(answer); });
}

void MonitorCommand::takeList(const ServiceConnection::Answer &answer)
{
    if (answer.failure && answer.failure->code == "Busy" && --looksLeft > 0) {
        nextLook.start(lookPeriod);
        return;
    }
    // A repository that holds nothing yet is known to hold nothing.
    const bool isEmpty = answer.failure && answer.failure->code == "NothingSaved";
    std::optional<QList<RepositoryItem>> now;
    if (!answer.failure || isEmpty) {
        now = isEmpty ? QList<RepositoryItem>() : RepositoryItem::list(answer.values.value(0));
    }
    if (hasEnded && held && now) {
        page.jobs.last().repository = RepositoryChanges::between(*held, *now);
    }
    held = now;
    finishLook();
}

void MonitorCommand::finishLook()
{
    if (hasEnded && writePage() && line.once) {
        leave(ExitStatus::ofCode(page.jobs.last().summary.code));
    }
    hasEnded = false;
}

bool MonitorCommand::writePage()
{
    page.host = QSysInfo::machineHostName();
    page.repository = service.repository();
    page.version = service.version();
    QSaveFile file(line.page);
    const QByteArray html = page.toHtml();
    if (!file.open(QIODevice::WriteOnly) || file.write(html) != html.size() || !file.commit()) {
        fail({ExitStatus::CannotWrite, "CannotWrite",
              QString("'%1' cannot be written: %2").arg(line.page, file.errorString())});
        return false;
    }
    output.object("page", {{"file", line.page}});
    return true;
}
