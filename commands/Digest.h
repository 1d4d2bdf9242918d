#pragma once

#include <QByteArray>
#include <QString>

class Waiter;

/// The MD5 digest in the output of "openssl md5": what follows the last "= ". Empty unless it is 32
/// hexadecimal digits.
QString digestFromOutput(const QByteArray &output);

/// MD5 digest of a file, 32 lower-case hexadecimal digits, computed by the command "openssl md5" within 30 s.
/// Empty when there is none: no such file, not a regular file (never opened), unreadable, or too slow.
QString fileDigest(Waiter &waiter, const QString &path);

/// The command that `fileDigest` runs, as text for a log.
QString digestCommandLine(const QString &path);
