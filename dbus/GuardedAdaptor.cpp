#include "dbus/VYXSaveRestoreAdaptor.h"
#include "platform/core/VYXException.h"

#include <QDBusContext>

#include <memory>

namespace {

/// The adaptor with a place where exceptions end. Qt's bus library has no exception tables: nothing may
/// unwind through it. It does call the virtual `qt_metacall`, where the exception is caught and answered.
class GuardedAdaptor final : public VYXSaveRestoreAdaptor
{
public:
    using VYXSaveRestoreAdaptor::VYXSaveRestoreAdaptor;

    int qt_metacall(QMetaObject::Call call, int id, void **arguments) override
    {
        try {
            return VYXSaveRestoreAdaptor::qt_metacall(call, id, arguments);
        } catch (VYXException *raised) {
            const std::unique_ptr<VYXException> exception(raised);
            reply(exception->getMessage());
        } catch (const VYXException &exception) {
            reply(exception.getMessage());
        } catch (const QString &text) {
            reply(text);
        }
        return handled;
    }

private:
    static constexpr int handled = -1;

    void reply(const QString &text) const
    {
        const auto *context = dynamic_cast<QDBusContext *>(parent());
        if (context != nullptr && context->calledFromDBus()) {
            context->sendErrorReply("com.corvane.Pelorin.Error.Failed", text);
        }
    }
};

} // namespace

QDBusAbstractAdaptor *createSaveRestoreAdaptor(QObject *module)
{
    return new GuardedAdaptor(module);
}
