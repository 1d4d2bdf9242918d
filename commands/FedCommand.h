#pragma once

#include "commands/Command.h"

#include <QByteArrayView>

#include <functional>
#include <optional>

/// Takes a portion for the program's standard input, and waits until it can. False when the program takes no
/// more: it has ended, or has to.
using Feed = std::function<bool(QByteArrayView)>;

/// Run a program whose standard input is what `feed` hands on; for a thread beside, which must not end before
/// the call does. `feed` returns false to end the program, which then has not finished. Of the program's
/// standard output nothing is kept, of its standard error the first 4096 bytes. With `as` it has the rights
/// of that user and group alone; only root can give them. The rest is as with `runCommand`, within limits.
CommandResult runFed(const Waiter &waiter, const QString &program, const QStringList &arguments,
                     const CommandLimits &limits, const std::function<bool(const Feed &)> &feed,
                     const std::optional<ChildIdentity> &as = {});
