#include "platform/core/Middleware.h"

#include "platform/logger/VYXLogger.h"

void Middleware::showFailure(const QString &text, const QString &detail)
{
    constexpr int failure = 4;
    showPopup(text, failure, -1, {}, detail, {}, {});
}

void Middleware::reportFailure(const QString &text)
{
    logError("%1", text);
    showFailure(text);
}
