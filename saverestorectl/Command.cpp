#include "saverestorectl/Command.h"

#include "saverestorectl/JobCommand.h"
#include "saverestorectl/LookCommand.h"
#include "saverestorectl/MonitorCommand.h"

#include <QCoreApplication>

#include <utility>

Command::Command(CommandLine commandLine, ServiceConnection &service, Output &output)
    : line(std::move(commandLine)), service(service), output(output)
{
    connect(&service, &ServiceConnection::vanished, this, [this](const QString &text) {
        fail({ExitStatus::ServiceGone, "ServiceGone", text});
    });
}

std::unique_ptr<Command> Command::make(const CommandLine &commandLine, ServiceConnection &service,
                                       Output &output)
{
    if (commandLine.command == "monitor") {
        return std::make_unique<MonitorCommand>(commandLine, service, output);
    }
    if (QStringList({"save", "restore", "verify"}).contains(commandLine.command)) {
        return std::make_unique<JobCommand>(commandLine, service, output);
    }
    return std::make_unique<LookCommand>(commandLine, service, output);
}

void Command::interrupt(int signal)
{
    leave(ExitStatus::Interrupted + signal);
}

void Command::leave(int status)
{
    output.endStatus();
    disconnect(&service, nullptr, this, nullptr);
    QCoreApplication::exit(status);
}

void Command::fail(const Failure &failure)
{
    output.problem(failure.code, failure.text, failure.status);
    leave(failure.status);
}
