#include "commands/StreamedCommand.h"

#include "commands/ChildProcess.h"
#include "platform/core/Waiter.h"
#include "platform/Descriptor.h"

#include <QDeadlineTimer>
#include <QProcess>

#include <array>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace {

constexpr int pollMs = 100; ///< how soon it is seen that the operation has to end
constexpr qsizetype portionSize = qsizetype{256} * 1024;
constexpr int pipeSize = 1024 * 1024; ///< so that the child works while a portion is taken
constexpr qsizetype keptErrorBytes = 4096;

enum class Stream { Ended, Refused, Broken, TimedOut, MustEnd };

Stream passOn(const Descriptor &output, const Waiter &waiter, const QDeadlineTimer &deadline,
              const std::function<bool(QByteArrayView)> &take)
{
    QByteArray portion(portionSize, Qt::Uninitialized);
    while (!waiter.mustEnd()) {
        if (deadline.hasExpired()) {
            return Stream::TimedOut;
        }
        pollfd ready = {output.number(), POLLIN, 0};
        if (TEMP_FAILURE_RETRY(poll(&ready, 1, pollMs)) == 0) {
            continue;
        }
        const ssize_t count = TEMP_FAILURE_RETRY(read(output.number(), portion.data(), portion.size()));
        if (count <= 0) {
            return count == 0 ? Stream::Ended : Stream::Broken;
        }
        if (!take(QByteArrayView(portion.constData(), count))) {
            return Stream::Refused;
        }
    }
    return Stream::MustEnd;
}

QString reasonOf(Stream stream)
{
    switch (stream) {
    case Stream::TimedOut:
        return ChildProcess::reasonOf(WaitOutcome::TimedOut);
    case Stream::MustEnd:
        return ChildProcess::reasonOf(WaitOutcome::Ended);
    default:
        return "its output could not be processed";
    }
}

} // namespace

CommandResult runStreamed(Waiter &waiter, const QString &program, const QStringList &arguments,
                          const CommandLimits &limits, const std::function<bool(QByteArrayView)> &take)
{
    CommandResult result;
    std::array<int, 2> ends = {-1, -1};
    if (waiter.mustEnd() || pipe2(ends.data(), O_CLOEXEC) != 0) {
        result.errorText = reasonOf(waiter.mustEnd() ? Stream::MustEnd : Stream::Broken);
        return result;
    }
    const Descriptor output(ends[0]);
    Descriptor input(ends[1]);
    fcntl(input.number(), F_SETPIPE_SZ, pipeSize);
    const QDeadlineTimer deadline(limits.wallClock);
    QByteArray errors;
    QProcess process;
    ChildProcess::prepare(process, limits, {.output = input.number()});
    QObject::connect(&process, &QProcess::readyReadStandardError, &process,
                     [&] { errors += process.readAllStandardError().left(keptErrorBytes - errors.size()); });
    process.start(program, arguments);
    input = Descriptor();
    Stream stream = Stream::Broken;
    waiter.runBeside([&] { stream = passOn(output, waiter, deadline, take); });
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline.remainingTimeAsDuration());
    const WaitOutcome outcome =
        stream == Stream::Ended
            ? waiter.waitUntil([&] { return process.state() == QProcess::NotRunning; }, left)
            : WaitOutcome::Ended;
    if (outcome != WaitOutcome::Met) {
        ChildProcess::killGroup(process);
        result.errorText = stream == Stream::Ended ? ChildProcess::reasonOf(outcome) : reasonOf(stream);
        return result;
    }
    result.finished =
        process.exitStatus() == QProcess::NormalExit && process.error() != QProcess::FailedToStart;
    result.exitCode = process.exitCode();
    result.errorText = process.error() == QProcess::FailedToStart ? process.errorString()
                                                                  : QString::fromLocal8Bit(errors).trimmed();
    return result;
}
