#pragma once

#include "commands/Command.h"

#include <optional>

class QProcess;
enum class WaitOutcome;

/// What all children of the service have in common.
namespace ChildProcess {

/// Open files that take the place of a child's own; a negative number is none.
struct Streams
{
    int input = -1;
    int output = -1;
    int errors = -1;
};

/// Before the start: an empty standard input, LC_ALL is C, a process group of its own, death when the thread
/// ends that starts it. It does not start when it cannot get the rights that it is to have.
void prepare(QProcess &process, const std::optional<CommandLimits> &limits = {}, const Streams &streams = {},
             const std::optional<ChildIdentity> &as = {});

/// End a child and its children, and wait until it is gone.
void killGroup(QProcess &process);

/// Why a child was ended.
QString reasonOf(WaitOutcome outcome);

} // namespace ChildProcess
