#pragma once

#include "platform/records/TimePattern.h"

#include <QDateTime>

/// True when a local time, to the second, fits a pattern.
bool matches(const TimePattern &pattern, const QDateTime &time);

/// The first local time after `after` that fits a pattern, to the second; an invalid time when there is none
/// within the next nine years (by then every day of every leap year has had its turn).
QDateTime nextOccurrence(const TimePattern &pattern, const QDateTime &after);
