#pragma once

#include "commands/GzipReader.h"
#include "platform/Descriptor.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QDeadlineTimer>
#include <QString>

#include <chrono>

class Waiter;

/// What the lines of an SQL dump say about it. Of each only the beginning is kept, however long it is.
class DumpText
{
public:
    enum class Kind {
        Unknown, ///< its first line has not come yet
        Other,   ///< no dump
        Database,
        Rows,
    };

    DumpText();

    void take(QByteArrayView portion);
    /// Nothing comes any more.
    void end();

    Kind kind() const { return found; }

    /// True when it began as a dump does and its transaction was closed; a text in it can say so, too, as
    /// well as that it was rolled back.
    bool isWhole() const { return found != Kind::Unknown && found != Kind::Other && closed && !failed; }

private:
    void endLine();
    void decideKind();

    QByteArray beginning; ///< of the present line
    Kind found = Kind::Unknown;
    bool closed = false;
    bool failed = false;
};

/// Reads a compressed dump in blocks. May be used beside the main thread.
class DumpReader
{
public:
    /// Reading is broken off when the waiter, which must outlive the object, has to end or the limit has
    /// passed. The file is no link.
    DumpReader(const QString &path, const Waiter &waiter, std::chrono::milliseconds limit);

    /// The next block, empty behind the last one and where there is no going on. The bytes belong to the
    /// reader, until its next call.
    QByteArrayView next();

    DumpText::Kind kind() const { return text.kind(); }

    /// True at the end of a dump that is whole.
    bool isWhole() const { return state == State::Ended && text.isWhole(); }

    /// True when the dump is missing, cannot be decompressed, or is not whole at its end.
    bool isBroken() const { return state == State::Broken || (state == State::Ended && !text.isWhole()); }

private:
    enum class State { Reading, Ended, Broken, BrokenOff };

    const Waiter &waiter;
    const QDeadlineTimer deadline;
    const Descriptor file;
    GzipReader gzip;
    DumpText text;
    State state = State::Reading;
};
