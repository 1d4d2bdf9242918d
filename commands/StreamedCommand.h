#pragma once

#include "commands/Command.h"

#include <QByteArrayView>

#include <functional>

/// Run one program as `runCommand` does, within limits, and hand on what it prints portion by portion, in a
/// thread beside, which must not end before the call does. `take` returns false to end the program, which
/// then has not finished. Nothing of its output is kept, of its standard error the first 4096 bytes. It waits
/// until its output is taken.
CommandResult runStreamed(const Waiter &waiter, const QString &program, const QStringList &arguments,
                          const CommandLimits &limits, const std::function<bool(QByteArrayView)> &take);
