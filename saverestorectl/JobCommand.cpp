#include "saverestorectl/JobCommand.h"

#include "saverestorectl/SummaryText.h"

#include <chrono>

using namespace std::chrono_literals;

namespace {

/// How often the service is asked whether the job still runs, in case its end was missed.
constexpr auto lookPeriod = 20s;
/// What its end may take to arrive after that.
constexpr auto grace = 2s;
constexpr int mostSilentLooks = 2;

} // namespace

JobCommand::JobCommand(const CommandLine &commandLine, ServiceConnection &service, Output &output)
    : Command(commandLine, service, output), display(service, output)
{
    connect(&service, &ServiceConnection::changed, this, &JobCommand::show);
    connect(&service, &ServiceConnection::finished, this, &JobCommand::end);
    connect(&looks, &QTimer::timeout, this, &JobCommand::lookAfterJob);
}

QVariantMap JobCommand::options() const
{
    QVariantMap map;
    if (!line.modules.isEmpty()) {
        map.insert("modules", line.modules);
    }
    if (!line.priorities.isEmpty()) {
        map.insert("priorities", line.priorities);
    }
    const std::initializer_list<std::pair<const char *, bool>> switches = {
        {"dry_run", line.dryRun}, {"repair", line.repair}, {"full", line.full}};
    for (const auto &[name, on] : switches) {
        if (on) {
            map.insert(name, true);
        }
    }
    return map;
}

void JobCommand::begin()
{
    service.call(operationTitle(line.command), {options()}, [this](const ServiceConnection::Answer &answer) {
        if (answer.failure) {
            fail(*answer.failure);
        } else {
            started(answer.values.value(0).toUInt());
        }
    });
}

void JobCommand::started(quint32 number)
{
    job = number;
    output.object("started", {{"job", static_cast<qint64>(job)}, {"operation", line.command}});
    looks.start(lookPeriod);
    for (const JobSummary &summary : std::exchange(earlyEnds, {})) {
        end(summary);
    }
    show();
    if (wantsEnd) {
        cancel();
    }
}

void JobCommand::show()
{
    if (job != 0 && service.job() == job) {
        display.update();
    }
}

void JobCommand::interrupt(int signal)
{
    if (wantsEnd) {
        Command::interrupt(signal);
        return;
    }
    wantsEnd = true;
    if (job != 0) {
        cancel();
    }
}

void JobCommand::cancel()
{
    output.line("Cancelling; once more to leave at once");
    output.object("cancelling", {{"job", static_cast<qint64>(job)}});
    show();
    service.call("Cancel", {}, [this](const ServiceConnection::Answer &answer) {
        if (answer.failure) {
            output.problem(answer.failure->code, answer.failure->text, answer.failure->status);
        }
    });
}

void JobCommand::end(const JobSummary &summary)
{
    if (job == 0) {
        earlyEnds << summary;
    } else if (summary.job == job) {
        display.end();
        printSummary(summary, line.verbose, output);
        leave(ExitStatus::ofCode(summary.code));
    }
}

void JobCommand::lookAfterJob()
{
    service.refresh([this](const ServiceConnection::Answer &answer) {
        silentLooks = answer.failure ? silentLooks + 1 : 0;
        if (silentLooks >= mostSilentLooks) {
            fail(*answer.failure);
        } else if (!answer.failure && service.job() != job) {
            QTimer::singleShot(grace, this, &JobCommand::missEnd);
        }
    });
}

void JobCommand::missEnd()
{
    const auto last = service.last(operationTitle(line.command));
    if (last && last->job == job) {
        end(*last);
    } else {
        fail({ExitStatus::NoAnswer, "NoAnswer", "The job has ended, and the service does not tell how"});
    }
}
