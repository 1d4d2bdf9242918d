#pragma once

#include <QObject>
#include <QString>

/// How an operation has ended, and why a call is refused: the closed list that programs know.
namespace Outcome {

Q_NAMESPACE

enum class Code {
    Success,
    Partial, ///< some items failed, all others were done
    Busy,
    Disabled,
    NoRepository,
    Insecure,
    NotTrusted,
    Unreachable,
    NothingSaved, ///< the repository has no list of saved modules
    ModulesUnknown,
    PauseFailed,
    StagingFull,
    RepositoryFull,
    RepositoryChanged,
    Cancelled,
    Stopped, ///< the process was asked to end
    Damaged,
    NotCancellable,
    InvalidOption,
    NewerFormat, ///< the repository is of a format that this service does not know
    Failed,
};
Q_ENUM_NS(Code)

/// True when the operation went through to its end, whatever it has found.
constexpr bool wentThrough(Code code)
{
    return code == Code::Success || code == Code::Partial || code == Code::Damaged;
}

/// The code as it is written: "Success".
QString name(Code code);
/// The code of a name; Failed for an unknown one.
Code codeOf(const QString &name);
/// The name of the error on the bus.
QString errorName(Code code);
/// What it means, for a person; empty for Success.
QString text(Code code);

} // namespace Outcome

/// Thrown by a method on the bus that cannot do what it is asked.
struct ControlError
{
    Outcome::Code code;
    QString text;
};
