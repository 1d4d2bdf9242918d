#pragma once

#include "platform/logger/JournalSocket.h"

#include <QString>

/// What the journal gets beside the text of each message that this thread logs while the object lives: fields
/// such as VYX_OPERATION. Objects are nested; of fields of one name the innermost counts.
class LogFields
{
public:
    explicit LogFields(const JournalSocket::Fields &fields);
    /// The item that is dealt with.
    LogFields(const QString &module, const QString &item);
    ~LogFields();

    LogFields(const LogFields &) = delete;
    LogFields &operator=(const LogFields &) = delete;

    /// Those of this thread.
    static const JournalSocket::Fields &current();

private:
    JournalSocket::Fields before;
};
