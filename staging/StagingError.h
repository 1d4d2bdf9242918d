#pragma once

#include "platform/logger/VYXLogger.h"

/// Log that a command gave no usable result.
inline void reportStagingError(const QString &command)
{
    logDebug("Error with %1", command);
}
