#include "commands/FedCommand.h"

#include "commands/ChildProcess.h"
#include "platform/core/Waiter.h"
#include "platform/Descriptor.h"

#include <QDeadlineTimer>
#include <QProcess>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int pollMs = 100; ///< how soon it is seen that the operation has to end
constexpr qsizetype keptErrorBytes = 4096;

/// The two ends of what leads to the child or from it.
struct Channel
{
    Descriptor own;
    Descriptor childs;
};

/// A socket, unlike a pipe, does not send the signal SIGPIPE when nobody reads any more.
Channel channelTo()
{
    std::array<int, 2> ends = {-1, -1};
    socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data());
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

Channel channelFrom()
{
    std::array<int, 2> ends = {-1, -1};
    [[maybe_unused]] const int made = pipe2(ends.data(), O_CLOEXEC);
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

/// A program that is being fed, seen from the thread that feeds it.
class FedChild
{
public:
    FedChild(const Waiter &waiter, std::chrono::milliseconds limit) : waiter(waiter), deadline(limit) {}

    bool isConnected() const { return input.childs.isOpen() && errors.childs.isOpen(); }

    bool start(const QString &program, const QStringList &arguments, const CommandLimits &limits,
               const std::optional<ChildIdentity> &as)
    {
        ChildProcess::prepare(process, limits,
                              {.input = input.childs.number(), .errors = errors.childs.number()}, as);
        process.setStandardOutputFile(QProcess::nullDevice());
        process.start(program, arguments);
        const bool started = process.waitForStarted();
        input.childs = Descriptor();
        errors.childs = Descriptor();
        return started;
    }

    bool send(QByteArrayView portion)
    {
        while (!portion.isEmpty()) {
            if (!awaitRoom()) {
                return false;
            }
            const ssize_t count = ::send(input.own.number(), portion.data(), size_t(portion.size()),
                                         MSG_NOSIGNAL | MSG_DONTWAIT);
            if (count < 0 && errno != EAGAIN && errno != EINTR) {
                return false;
            }
            portion = portion.sliced(std::max<ssize_t>(count, 0));
        }
        return true;
    }

    /// Wait for the program's end, with its input at an end.
    WaitOutcome awaitEnd()
    {
        input.own = Descriptor();
        while (process.state() != QProcess::NotRunning) {
            if (waiter.mustEnd()) {
                return WaitOutcome::Ended;
            }
            if (deadline.hasExpired()) {
                return WaitOutcome::TimedOut;
            }
            const bool silent = !errors.own.isOpen();
            if (!silent) {
                pollfd said = {errors.own.number(), POLLIN, 0};
                poll(&said, 1, pollMs);
                takeErrors(said);
            }
            process.waitForFinished(silent ? pollMs : 0);
        }
        return WaitOutcome::Met;
    }

    /// What it said; only what has come is waited for.
    QString errorText()
    {
        pollfd said = {errors.own.number(), POLLIN, 0};
        while (errors.own.isOpen() && poll(&said, 1, 0) > 0) {
            takeErrors(said);
        }
        return QString::fromLocal8Bit(errorBytes).trimmed();
    }

    QProcess process;

private:
    bool awaitRoom()
    {
        while (!waiter.mustEnd() && !deadline.hasExpired()) {
            std::array<pollfd, 2> ends = {
                {{input.own.number(), POLLOUT, 0}, {errors.own.number(), POLLIN, 0}}};
            poll(ends.data(), ends.size(), pollMs);
            takeErrors(ends[1]);
            if (ends[0].revents != 0) {
                return true;
            }
        }
        return false;
    }

    void takeErrors(const pollfd &said)
    {
        if (said.revents == 0) {
            return;
        }
        std::array<char, keptErrorBytes> portion = {};
        const ssize_t count = read(errors.own.number(), portion.data(), portion.size());
        if (count > 0) {
            errorBytes.append(portion.data(), std::min<qsizetype>(count, keptErrorBytes - errorBytes.size()));
        } else if (count == 0) {
            errors.own = Descriptor();
        }
    }

    const Waiter &waiter;
    const QDeadlineTimer deadline;
    Channel input = channelTo();
    Channel errors = channelFrom();
    QByteArray errorBytes;
};

} // namespace

CommandResult runFed(const Waiter &waiter, const QString &program, const QStringList &arguments,
                     const CommandLimits &limits, const std::function<bool(const Feed &)> &feed,
                     const std::optional<ChildIdentity> &as)
{
    CommandResult result;
    FedChild child(waiter, limits.wallClock);
    if (waiter.mustEnd() || !child.isConnected()) {
        result.errorText = ChildProcess::reasonOf(WaitOutcome::Ended);
        return result;
    }
    if (!child.start(program, arguments, limits, as)) {
        result.errorText = child.process.errorString();
        return result;
    }
    const bool fed = feed([&](QByteArrayView portion) { return child.send(portion); });
    const WaitOutcome outcome = fed ? child.awaitEnd() : WaitOutcome::Ended;
    if (outcome != WaitOutcome::Met) {
        ChildProcess::killGroup(child.process);
        result.errorText = fed ? ChildProcess::reasonOf(outcome) : "its input could not be read";
        return result;
    }
    result.finished = child.process.exitStatus() == QProcess::NormalExit;
    result.exitCode = child.process.exitCode();
    result.errorText = child.errorText();
    return result;
}
