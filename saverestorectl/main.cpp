#include "saverestorectl/CheckCommand.h"
#include "saverestorectl/CommandLine.h"
#include "saverestorectl/ExitStatus.h"
#include "saverestorectl/Output.h"

#include <QCoreApplication>

#include <clocale>
#include <csignal>
#include <cstdio>

int main(int argc, char **argv)
{
    // What is read by somebody who leaves early is no reason to leave a job alone.
    std::signal(SIGPIPE, SIG_IGN);
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName("saverestorectl");
    QCoreApplication::setApplicationVersion(PROJECT_VERSION);
    const CommandLine commandLine = CommandLine::parse(QCoreApplication::arguments().mid(1));
    if (!commandLine.answer.isEmpty()) {
        std::fputs(commandLine.answer.toUtf8().constData(), stdout);
        return ExitStatus::Success;
    }
    Output output(commandLine.json);
    if (!commandLine.error.isEmpty()) {
        output.problem("Usage", commandLine.error + "; see saverestorectl --help", ExitStatus::Usage);
        return ExitStatus::Usage;
    }
    return checkDescriptions(commandLine, output);
}
