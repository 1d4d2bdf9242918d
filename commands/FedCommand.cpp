#include "commands/FedCommand.h"

#include "commands/PipedChild.h"

CommandResult runFed(const Waiter &waiter, const QString &program, const QStringList &arguments,
                     const CommandLimits &limits, const std::function<bool(const Feed &)> &feed,
                     const std::optional<ChildIdentity> &as)
{
    PipedChild child(waiter, PipedChild::Pipe::Input, limits.wallClock);
    const auto work = [&] { return feed([&](QByteArrayView portion) { return child.send(portion); }); };
    return child.run(program, arguments, limits, as, work, "its input could not be read");
}
