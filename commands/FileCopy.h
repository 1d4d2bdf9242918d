#pragma once

#include <QString>

class Descriptor;
class Waiter;

/// Copy what is left to read of an open file into a file that does not exist yet, for its owner alone, within
/// 30 min with events served. False when it is not whole; there is no such file then.
bool copyContent(Waiter &waiter, const Descriptor &source, const QString &target);
