#pragma once

#include <QString>

class Descriptor;
class Waiter;

/// MD5 digest of what is left to read of an open file, 32 lower-case hexadecimal digits, computed within 30 s
/// with events served. Empty when there is none: not open, unreadable, too slow, or the waiter has to end.
QString fileDigest(Waiter &waiter, const Descriptor &file);

/// The digest of one of the service's own files. Empty also when there is no such file or when it is no
/// regular one: a link, say.
QString fileDigest(Waiter &waiter, const QString &path);
