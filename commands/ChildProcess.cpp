#include "commands/ChildProcess.h"

#include "platform/core/Waiter.h"

#include <QProcess>
#include <QProcessEnvironment>

#include <csignal>
#include <grp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

constexpr int killLimitMs = 5000;
constexpr int noRights = 126;

void setLimit(__rlimit_resource_t resource, rlim_t value)
{
    const struct rlimit both = {value, value};
    setrlimit(resource, &both);
}

void setStream(int file, int number)
{
    if (file >= 0) {
        dup2(file, number);
    }
}

} // namespace

namespace ChildProcess {

void prepare(QProcess &process, const std::optional<CommandLimits> &limits, const Streams &streams,
             const std::optional<ChildIdentity> &as)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("LC_ALL", "C");
    process.setProcessEnvironment(environment);
    process.setStandardInputFile(QProcess::nullDevice());
    if (streams.output >= 0) {
        process.setStandardOutputFile(QProcess::nullDevice());
    }
    if (streams.errors >= 0) {
        process.setStandardErrorFile(QProcess::nullDevice());
    }
    process.setChildProcessModifier([limits, as, streams] {
        setpgid(0, 0);
        if (as && (setgroups(0, nullptr) != 0 || setgid(as->group) != 0 || setuid(as->user) != 0)) {
            _exit(noRights);
        }
        prctl(PR_SET_PDEATHSIG, SIGKILL); // other rights would take it away
        if (limits) {
            setLimit(RLIMIT_CPU, static_cast<rlim_t>(limits->processorTime.count()));
            setLimit(RLIMIT_FSIZE, static_cast<rlim_t>(limits->fileSize));
            setLimit(RLIMIT_CORE, 0);
            if (limits->memory > 0) {
                setLimit(RLIMIT_AS, static_cast<rlim_t>(limits->memory));
            }
        }
        setStream(streams.input, STDIN_FILENO);
        setStream(streams.output, STDOUT_FILENO);
        setStream(streams.errors, STDERR_FILENO);
    });
}

void killGroup(QProcess &process)
{
    const auto group = static_cast<pid_t>(process.processId());
    if (group > 1) {
        kill(-group, SIGKILL);
    }
    process.kill();
    process.waitForFinished(killLimitMs);
}

QString reasonOf(WaitOutcome outcome)
{
    return outcome == WaitOutcome::TimedOut ? "time limit reached" : "the operation has to end";
}

} // namespace ChildProcess
