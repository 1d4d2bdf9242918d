#include "platform/core/VYXException.h"

#include <QObject>

#include <utility>

VYXException::VYXException(QObject *module, ErrorType type, QString message)
    : module(module), type(type), message(std::move(message))
{
}
