#pragma once

#include <QString>

/// How the command ends. Each code of the service has a number of its own, from 10 on.
namespace ExitStatus {

enum Status : int {
    Success = 0,
    Failed = 1,
    Usage = 2,
    NoBus = 3,
    NoService = 4,
    ServiceGone = 5,
    NotAllowed = 6,
    NoAnswer = 7,
    Faults = 8,
    CannotWrite = 9,
    FirstCode = 10,
    Interrupted = 128, ///< and the number of the signal
};

/// The status of one of the service's codes; Failed for a code that is not known.
int ofCode(const QString &code);

} // namespace ExitStatus

/// Why the command cannot do what it is asked.
struct Failure
{
    int status;
    QString code; ///< for programs, as "NoService" or one of the service's codes
    QString text; ///< for a person
};
