#pragma once

#include "saverestorectl/CommandLine.h"
#include "saverestorectl/Output.h"
#include "saverestorectl/ServiceConnection.h"

#include <QObject>

#include <memory>

/// What the command line asks of the service, from its begin to the status with which the program ends.
class Command : public QObject
{
    Q_OBJECT

public:
    Command(CommandLine commandLine, ServiceConnection &service, Output &output);

    /// The service is there. What comes to an end at once says so from the event loop.
    virtual void begin() = 0;
    /// A signal to end has come, or another one.
    virtual void interrupt(int signal);
    virtual void resize() {}

    static std::unique_ptr<Command> make(const CommandLine &commandLine, ServiceConnection &service,
                                         Output &output);

protected:
    /// End the program.
    void leave(int status);
    void fail(const Failure &failure);

    const CommandLine line;
    ServiceConnection &service;
    Output &output;
};
