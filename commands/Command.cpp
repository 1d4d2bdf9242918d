#include "commands/Command.h"

#include "commands/ChildProcess.h"
#include "platform/core/Waiter.h"

#include <QProcess>

#include <algorithm>
#include <memory>
#include <vector>

using namespace ChildProcess;

namespace {

constexpr qsizetype mostErrorBytes = qsizetype{64} * 1024;
constexpr qsizetype mostOutputBytes = qsizetype{1024} * 1024;

/// A child that runs, and what has come of it.
struct Running
{
    QProcess process;
    CommandResult result;
    QByteArray errors;
    bool bounded = true;

    void start(const QString &program, const QStringList &arguments)
    {
        prepare(process);
        process.start(program, arguments);
    }

    /// Its output goes into the result. True when it has ended, or has printed more than it may.
    bool collect()
    {
        const bool running = process.state() != QProcess::NotRunning;
        result.output += process.readAllStandardOutput();
        errors += process.readAllStandardError().left(mostErrorBytes - errors.size());
        bounded = result.output.size() <= mostOutputBytes;
        return !running || !bounded;
    }

    void conclude(WaitOutcome outcome)
    {
        if (!collect() || !bounded) {
            killGroup(process);
            result.errorText =
                bounded ? reasonOf(outcome) : QString("it printed more than %1 bytes").arg(mostOutputBytes);
            result.output = bounded ? result.output + process.readAllStandardOutput() : QByteArray();
        } else if (process.error() == QProcess::FailedToStart) {
            result.errorText = process.errorString();
        } else {
            result.finished = process.exitStatus() == QProcess::NormalExit;
            result.exitCode = process.exitCode();
            result.errorText = QString::fromLocal8Bit(errors).trimmed();
        }
    }
};

} // namespace

QList<CommandResult> runCommands(Waiter &waiter, const QString &program, const QList<QStringList> &arguments,
                                 std::chrono::milliseconds limit)
{
    if (waiter.mustEnd()) {
        CommandResult ended;
        ended.errorText = "the operation has to end";
        QList<CommandResult> none;
        none.fill(ended, arguments.size());
        return none;
    }
    std::vector<std::unique_ptr<Running>> children;
    for (const QStringList &own : arguments) {
        children.push_back(std::make_unique<Running>());
        children.back()->start(program, own);
    }
    const auto allEnded = [&] {
        return std::count_if(children.cbegin(), children.cend(), [](const auto &child) {
                   return child->collect();
               }) == static_cast<qsizetype>(children.size());
    };
    const WaitOutcome outcome = waiter.waitUntil(allEnded, limit);
    QList<CommandResult> results;
    for (const auto &child : children) {
        child->conclude(outcome);
        results << child->result;
    }
    return results;
}

CommandResult runCommand(Waiter &waiter, const QString &program, const QStringList &arguments,
                         std::chrono::milliseconds limit)
{
    return runCommands(waiter, program, {arguments}, limit).first();
}
