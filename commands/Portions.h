#pragma once

#include <chrono>
#include <functional>

class Waiter;

enum class Portion { More, Last, Failed };

/// Repeat work on a large file portion by portion in a thread of its own, with events served, until it says
/// that it is through. False when a portion failed, the limit has passed or the waiter has to end: that is
/// looked at after each portion.
bool runInPortions(Waiter &waiter, std::chrono::milliseconds limit, const std::function<Portion()> &work);
