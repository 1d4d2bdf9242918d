#pragma once

#include <QString>
#include <QVariant>
#include <QVariantList>

class VYXModule;

/// What became of a call to another module.
struct RemoteCallResult
{
    enum Outcome {
        Answered,
        ErrorReply, ///< the module answered with an error
        Raised,     ///< the call raised an exception
    };

    Outcome outcome = Answered;
    QVariant value; ///< first value of an answer
    QString error;  ///< text of the error or exception

    bool failed() const { return outcome != Answered; }
};

/// Call a method of another module and wait for its answer (at most 25 s). Throws nothing.
RemoteCallResult callModule(VYXModule &caller, const QString &module, const QString &method,
                            const QVariantList &arguments = {});
