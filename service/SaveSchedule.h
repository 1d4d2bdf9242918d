#pragma once

#include <QList>

#include <optional>

/// The hours at which the periodic save runs.
///
/// Time mode: the one hour given (1 to 24, 24 being midnight). Frequency mode: every `hour` hours (a period
/// of at least 1), counted from the hour after `currentHour` (0 to 23) upwards to 24 and then downwards to 0.
/// Nothing for a period below 1.
std::optional<QList<int>> scheduledHours(int hour, bool frequency, int currentHour);
