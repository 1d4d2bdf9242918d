#pragma once

#include <QByteArray>
#include <QByteArrayView>

class GzipWriter;

/// Follows what sqlite3 prints for `.dump` on its way into a compressed file. However long a line is, only
/// its beginning is kept.
class DumpStream
{
public:
    /// Everything is passed on.
    explicit DumpStream(GzipWriter &target) : target(target) {}

    /// Only lines that begin with `head` are passed on, with `replacement` in its place.
    DumpStream(GzipWriter &target, QByteArray head, QByteArray replacement);

    /// The next portion. False when it could not be written.
    bool take(QByteArrayView portion);

    /// True when the dump began as one, has come to its end and closed its transaction without errors.
    bool complete() const;

    /// How many lines were passed on.
    qint64 lines() const { return passedLines; }

    /// How many lines make a table, an index, a view or a trigger; a text can have such lines, too.
    qint64 objects() const { return madeObjects; }

private:
    bool takePart(QByteArrayView part);
    bool decide();

    GzipWriter &target;
    QByteArray head;
    QByteArray replacement;
    QByteArray beginning; ///< of the present line, or the last one
    bool decided = false; ///< whether the present line is passed on
    bool passes = false;
    bool ended = true; ///< with a line feed
    bool failed = false;
    bool first = true;
    qint64 passedLines = 0;
    qint64 madeObjects = 0;
};
