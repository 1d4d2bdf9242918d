#include "staging/OperationContext.h"

#include "platform/core/Middleware.h"
#include "platform/core/Waiter.h"
#include "platform/logger/VYXLogger.h"

bool OperationContext::isBrokenOff(const QString &operation) const
{
    switch (waiter.endReason()) {
    case Waiter::End::None:
        return false;
    case Waiter::End::ProcessEnds:
        logWarning("The service is asked to end: abort %1 operations.", operation);
        break;
    case Waiter::End::RepositoryChanged:
        middleware.reportFailure(QString("The repository was changed: abort %1 operations.").arg(operation));
        break;
    }
    return true;
}
