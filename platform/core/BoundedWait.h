#pragma once

#include <QtGlobal>

#include <chrono>
#include <functional>

enum class WaitOutcome { Met, TimedOut, Ending };

/// Dispatch events until the condition holds, the limit has passed, or the process is asked to end; the
/// condition is looked at first, and again after every round of events. With `progress`, the limit is one of
/// inactivity: it starts anew whenever the value changes.
WaitOutcome waitUntil(const std::function<bool()> &condition, std::chrono::milliseconds limit,
                      const std::function<quint64()> &progress = {});

/// Dispatch events for that time, or until the process is asked to end (false).
bool dispatchEventsFor(std::chrono::milliseconds period);
