#include "commands/PipedChild.h"

#include "platform/core/Waiter.h"

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
constexpr qsizetype portionSize = qsizetype{256} * 1024;
constexpr int pipeSize = 1024 * 1024; ///< so that the child works while a portion is taken

} // namespace

/// A socket, unlike a pipe, does not send the signal SIGPIPE when nobody reads any more.
PipedChild::Channel PipedChild::channelTo()
{
    std::array<int, 2> ends = {-1, -1};
    socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data());
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

PipedChild::Channel PipedChild::channelFrom(int size)
{
    std::array<int, 2> ends = {-1, -1};
    if (pipe2(ends.data(), O_CLOEXEC) == 0 && size > 0) {
        fcntl(ends[1], F_SETPIPE_SZ, size);
    }
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

PipedChild::PipedChild(const Waiter &waiter, Pipe pipe, std::chrono::milliseconds limit)
    : waiter(waiter), deadline(limit), pipe(pipe),
      stream(pipe == Pipe::Input ? channelTo() : channelFrom(pipeSize)), errors(channelFrom())
{
}

CommandResult PipedChild::run(const QString &program, const QStringList &arguments,
                              const CommandLimits &limits, const std::optional<ChildIdentity> &as,
                              const std::function<bool()> &work, const QString &fault)
{
    CommandResult result;
    const bool connected = stream.childs.isOpen() && errors.childs.isOpen();
    if (waiter.mustEnd() || !connected) {
        result.errorText = connected ? ChildProcess::reasonOf(WaitOutcome::Ended) : fault;
        return result;
    }
    if (!start(program, arguments, limits, as)) {
        result.errorText = process.errorString();
        return result;
    }
    const bool worked = work();
    const WaitOutcome broken = deadline.hasExpired() ? WaitOutcome::TimedOut : WaitOutcome::Ended;
    const WaitOutcome outcome = worked ? awaitEnd() : broken;
    if (outcome != WaitOutcome::Met) {
        ChildProcess::killGroup(process);
        const bool failed = !worked && !waiter.mustEnd() && !deadline.hasExpired();
        result.errorText = failed ? fault : ChildProcess::reasonOf(outcome);
        return result;
    }
    result.finished = process.exitStatus() == QProcess::NormalExit;
    result.exitCode = process.exitCode();
    result.errorText = errorText();
    return result;
}

bool PipedChild::start(const QString &program, const QStringList &arguments, const CommandLimits &limits,
                       const std::optional<ChildIdentity> &as)
{
    ChildProcess::Streams streams = {.errors = errors.childs.number()};
    (pipe == Pipe::Input ? streams.input : streams.output) = stream.childs.number();
    process.setStandardOutputFile(QProcess::nullDevice());
    ChildProcess::prepare(process, limits, streams, as);
    process.start(program, arguments);
    const bool started = process.waitForStarted();
    stream.childs = Descriptor();
    errors.childs = Descriptor();
    return started;
}

bool PipedChild::send(QByteArrayView portion)
{
    while (!portion.isEmpty()) {
        if (!awaitReadiness(POLLOUT)) {
            return false;
        }
        const ssize_t count =
            ::send(stream.own.number(), portion.data(), size_t(portion.size()), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count < 0 && errno != EAGAIN && errno != EINTR) {
            return false;
        }
        portion = portion.sliced(std::max<ssize_t>(count, 0));
    }
    return true;
}

bool PipedChild::passOn(const std::function<bool(QByteArrayView)> &take)
{
    QByteArray portion(portionSize, Qt::Uninitialized);
    while (awaitReadiness(POLLIN)) {
        const ssize_t count = TEMP_FAILURE_RETRY(read(stream.own.number(), portion.data(), portion.size()));
        if (count <= 0) {
            return count == 0;
        }
        if (!take(QByteArrayView(portion.constData(), count))) {
            return false;
        }
    }
    return false;
}

bool PipedChild::awaitReadiness(short event)
{
    while (!waiter.mustEnd() && !deadline.hasExpired()) {
        std::array<pollfd, 2> ends = {{{stream.own.number(), event, 0}, {errors.own.number(), POLLIN, 0}}};
        poll(ends.data(), ends.size(), pollMs);
        takeErrors(ends[1]);
        if (ends[0].revents != 0) {
            return true;
        }
    }
    return false;
}

/// With its input at an end.
WaitOutcome PipedChild::awaitEnd()
{
    stream.own = Descriptor();
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

void PipedChild::takeErrors(const pollfd &said)
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

/// What it said; only what has come is waited for.
QString PipedChild::errorText()
{
    pollfd said = {errors.own.number(), POLLIN, 0};
    while (errors.own.isOpen() && poll(&said, 1, 0) > 0) {
        takeErrors(said);
    }
    return QString::fromLocal8Bit(errorBytes).trimmed();
}
