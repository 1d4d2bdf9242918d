#include "commands/StreamedCommand.h"

#include "commands/PipedChild.h"

CommandResult runStreamed(const Waiter &waiter, const QString &program, const QStringList &arguments,
                          const CommandLimits &limits, const std::function<bool(QByteArrayView)> &take)
{
    PipedChild child(waiter, PipedChild::Pipe::Output, limits.wallClock);
    const auto work = [&] { return child.passOn(take); };
    return child.run(program, arguments, limits, {}, work, "its output could not be processed");
}
