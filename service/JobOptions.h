#pragma once

#include "catalogue/Priorities.h"
#include "staging/OperationContext.h"

#include <QStringList>
#include <QVariantMap>

#include <optional>

/// What the options of a job on the bus ask for.
struct JobOptions
{
    OperationOptions operation;
    std::optional<Priorities> priorities = {};
    bool full = false;   ///< of a verify
    bool repair = false; ///< of a save

    /// Throws a ControlError for an option that is not among `allowed`, or has another type.
    static JobOptions parse(const QVariantMap &options, const QStringList &allowed);
};
