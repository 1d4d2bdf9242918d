#pragma once

#include <QPointer>
#include <QString>

class QObject;

/// What the middleware throws, as a pointer to a heap object that the catcher deletes.
class VYXException
{
public:
    enum ErrorType {
        Unknown = 0,
        NotConnected = 1,      ///< there is no bus
        ModuleUnreachable = 2, ///< nobody owns the module's name
        InvalidArguments = 3,
        InvocationFailed = 4, ///< the module object has no such method
    };

    /// `module` is the module object that raised the exception; it is not owned and may be null.
    VYXException(QObject *module, ErrorType type, QString message);

    QObject *getModule() const { return module; }
    ErrorType getType() const { return type; }
    QString getMessage() const { return message; }

private:
    QPointer<QObject> module;
    ErrorType type;
    QString message;
};
