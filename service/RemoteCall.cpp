#include "service/RemoteCall.h"

#include "platform/core/VYXModule.h"

#include <memory>

RemoteCallResult callModule(VYXModule &caller, const QString &module, const QString &method,
                            const QVariantList &arguments)
{
    try {
        const QDBusMessage reply = caller.syncRemoteCall(module, method, arguments);
        if (reply.type() == QDBusMessage::ErrorMessage) {
            return {RemoteCallResult::ErrorReply, {}, reply.errorMessage()};
        }
        return {RemoteCallResult::Answered, reply.arguments().value(0), {}};
    } catch (VYXException *raised) {
        const std::unique_ptr<VYXException> exception(raised);
        return {RemoteCallResult::Raised, {}, exception->getMessage()};
    } catch (const VYXException &exception) {
        return {RemoteCallResult::Raised, {}, exception.getMessage()};
    } catch (const QString &text) {
        return {RemoteCallResult::Raised, {}, text};
    }
}
