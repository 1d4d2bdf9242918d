#pragma once

#include "bench/Distant.h"

/// One file of 1 GB to a server and back, through the repository alone and by curl, directly and without a
/// line that delays. Memory is what the process has grown by. Empty when a transfer failed.
QList<DistantFigures> measureLargeEntry(int rounds);
