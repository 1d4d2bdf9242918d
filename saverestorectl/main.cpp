#include "saverestorectl/CheckCommand.h"
#include "saverestorectl/Command.h"
#include "saverestorectl/Signals.h"

#include <QCoreApplication>
#include <QTimer>

#include <clocale>
#include <csignal>
#include <cstdio>

namespace {

int askService(const CommandLine &commandLine, Signals &signalEvents, Output &output)
{
    ServiceConnection service;
    if (const auto failure = service.open()) {
        output.problem(failure->code, failure->text, failure->status);
        return failure->status;
    }
    const std::unique_ptr<Command> command = Command::make(commandLine, service, output);
    signalEvents.start(QCoreApplication::instance());
    QObject::connect(&signalEvents, &Signals::interrupted, command.get(), &Command::interrupt);
    QObject::connect(&signalEvents, &Signals::resized, command.get(), &Command::resize);
    QTimer::singleShot(0, command.get(), &Command::begin);
    return QCoreApplication::exec();
}

} // namespace

int main(int argc, char **argv)
{
    std::setlocale(LC_CTYPE, "");
    // A reader that leaves early is no reason to leave a job alone.
    std::signal(SIGPIPE, SIG_IGN);
    QCoreApplication::setApplicationName("saverestorectl");
    QCoreApplication::setApplicationVersion(PROJECT_VERSION);
    QStringList arguments;
    for (int index = 1; index < argc; ++index) {
        arguments << QString::fromLocal8Bit(argv[index]);
    }
    const CommandLine commandLine = CommandLine::parse(arguments);
    if (!commandLine.answer.isEmpty()) {
        std::fputs(commandLine.answer.toUtf8().constData(), stdout);
        return ExitStatus::Success;
    }
    Output output(commandLine.json);
    if (!commandLine.error.isEmpty()) {
        output.problem("Usage", commandLine.error + "; see saverestorectl --help", ExitStatus::Usage);
        return ExitStatus::Usage;
    }
    if (commandLine.command == "check") {
        return checkDescriptions(commandLine, output);
    }
    Signals signalEvents;
    const QCoreApplication application(argc, argv);
    return askService(commandLine, signalEvents, output);
}
