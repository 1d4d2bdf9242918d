#pragma once

#include "commands/Command.h"

#include <QByteArrayView>

#include <functional>

/// Run one program as `runCommand` does, within limits, and hand on what it prints portion by portion;
/// nothing of it is kept, of its standard error the first 4096 bytes. `take` runs in a thread beside and
/// returns false to end the child, which then has not finished. A child waits until its output is taken.
CommandResult runStreamed(Waiter &waiter, const QString &program, const QStringList &arguments,
                          const CommandLimits &limits, const std::function<bool(QByteArrayView)> &take);
