#pragma once

#include "commands/Command.h"

#include <optional>

class Descriptor;
class QProcess;
enum class WaitOutcome;

/// What all children of the service have in common.
namespace ChildProcess {

/// Before the start: an empty standard input, LC_ALL is C, a process group of its own, death when the thread
/// ends that starts it. What it prints goes into `output`, when there is one. It does not start when it
/// cannot get the rights that it is to have.
void prepare(QProcess &process, const std::optional<CommandLimits> &limits = {},
             const Descriptor *output = nullptr, const std::optional<ChildIdentity> &as = {});

/// End a child and its children, and wait until it is gone.
void killGroup(QProcess &process);

/// Why a child was ended.
QString reasonOf(WaitOutcome outcome);

} // namespace ChildProcess
