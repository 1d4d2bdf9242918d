#pragma once

#include <QString>

class Descriptor;
class Waiter;

/// MD5 digest of what is left to read of an open file, 32 lower-case hexadecimal digits, for a thread beside.
/// Empty when there is none: not open, unreadable, 30 s have passed, or the waiter has to end.
QString fileDigest(const Waiter &waiter, const Descriptor &file);

/// The digest of one of the service's own files, with events served. Empty also when there is no such file or
/// when it is no regular one: a link, say.
QString fileDigest(Waiter &waiter, const QString &path);
