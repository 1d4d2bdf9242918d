#pragma once

#include <QtGlobal>

/// From so many bytes on a stream is worth buffers of its own: few are that large, and of many small ones
/// each byte of a buffer would count.
constexpr qint64 largeStream = qint64{16} * 1024 * 1024;

/// The bytes in which a large stream is moved.
constexpr qsizetype largePortion = qsizetype{128} * 1024;
