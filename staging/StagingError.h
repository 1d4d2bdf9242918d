#pragma once

#include "platform/logger/VYXLogger.h"

#include <QString>

/// Log that a command or a part of the work gave no usable result.
inline void reportStagingError(const QString &work)
{
    logDebug("Error with %1", work);
}
