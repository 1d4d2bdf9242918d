#include "dbus/SaveRestoreAdaptors.h"
#include "dbus/VYXSaveRestoreAdaptor.h"
#include "outcome/Code.h"
#include "platform/core/VYXException.h"

#include <QDBusContext>

#include <memory>
#include <SaveRestoreControl1Adaptor.h>

namespace {

/// An adaptor with a place where exceptions end. Qt's bus library has no exception tables: nothing may
/// unwind through it. It does call the virtual `qt_metacall`, where the exception is caught and answered.
template <typename Adaptor> class GuardedAdaptor final : public Adaptor
{
public:
    using Adaptor::Adaptor;

    int qt_metacall(QMetaObject::Call call, int id, void **arguments) override
    {
        try {
            return Adaptor::qt_metacall(call, id, arguments);
        } catch (VYXException *raised) {
            const std::unique_ptr<VYXException> exception(raised);
            reply(Outcome::Code::Failed, exception->getMessage());
        } catch (const VYXException &exception) {
            reply(Outcome::Code::Failed, exception.getMessage());
        } catch (const ControlError &error) {
            reply(error.code, error.text);
        } catch (const QString &text) {
            reply(Outcome::Code::Failed, text);
        }
        return handled;
    }

private:
    static constexpr int handled = -1;

    void reply(Outcome::Code code, const QString &text) const
    {
        const auto *context = dynamic_cast<QDBusContext *>(this->parent());
        if (context != nullptr && context->calledFromDBus()) {
            context->sendErrorReply(Outcome::errorName(code), text);
        }
    }
};

} // namespace

QDBusAbstractAdaptor *createSaveRestoreAdaptor(QObject *module)
{
    return new GuardedAdaptor<VYXSaveRestoreAdaptor>(module);
}

QDBusAbstractAdaptor *createControlAdaptor(QObject *module)
{
    return new GuardedAdaptor<SaveRestoreControl1Adaptor>(module);
}
