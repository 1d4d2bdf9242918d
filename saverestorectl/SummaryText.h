#pragma once

#include "saverestorectl/JobSummary.h"

class Output;

/// Print what has become of an operation, for a person or as JSON. Not every item is named unless that is
/// wanted, or nothing was to be changed.
void printSummary(const JobSummary &summary, bool everyItem, Output &output);

/// "12 items done (3.4 MB), 2 failed, in 1.2 s".
QString summaryLine(const JobSummary &summary);

/// "Save", for a heading.
QString operationTitle(const QString &operation);
