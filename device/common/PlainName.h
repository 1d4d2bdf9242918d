#pragma once

#include <QString>

/// True when a text is an ASCII letter followed by ASCII letters, digits and underscores: fit to be a part of
/// a path, of a bus name and of a configuration line as it is.
bool isPlainName(const QString &text);
