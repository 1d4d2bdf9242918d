#pragma once

#include <QString>
#include <QVariant>

/// What became of a call to another module.
struct RemoteCallResult
{
    enum Outcome {
        Answered,
        ErrorReply,  ///< the module answered with an error, or not in time
        Unreachable, ///< nobody owns the module's name, there is no bus, or the wait had to end
    };

    Outcome outcome = Answered;
    QVariant value; ///< first value of an answer
    QString error;  ///< text of the error

    bool failed() const { return outcome != Answered; }
};
