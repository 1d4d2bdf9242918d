#pragma once

#include "saverestorectl/JobSummary.h"

/// The groups of an operation as HTML: a line for each with its steps, and their times as a table. Empty when
/// there are no groups.
QString timeLine(const JobSummary &summary);
