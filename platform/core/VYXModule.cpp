#include "platform/core/VYXModule.h"

#include "platform/core/VYXApplication.h"
#include "platform/core/VYXEventSubscription.h"
#include "platform/core/Waiter.h"
#include "platform/logger/VYXLogger.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QDBusReply>
#include <QElapsedTimer>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>
#include <utility>

namespace {

constexpr int remoteCallLimitMs = 25000;

QString eventInterface()
{
    return "com.corvane.Pelorin.VYXEvent";
}

bool isUnreachable(const QDBusMessage &reply)
{
    if (reply.type() != QDBusMessage::ErrorMessage) {
        return false;
    }
    const QDBusError::ErrorType type = QDBusError(reply).type();
    return type == QDBusError::ServiceUnknown || type == QDBusError::Disconnected ||
           reply.errorName() == "org.freedesktop.DBus.Error.NameHasNoOwner";
}

} // namespace

VYXModule::VYXModule(QString moduleName) : moduleName(std::move(moduleName))
{
    QMetaObject::invokeMethod(this, &VYXModule::start, Qt::QueuedConnection);
    if (auto *application = qobject_cast<VYXApplication *>(QCoreApplication::instance())) {
        connect(application, &VYXApplication::aboutToStop, this, &VYXModule::stop);
    }
}

QString VYXModule::busName(const QString &module)
{
    return "com.corvane.Pelorin." + module;
}

QString VYXModule::objectPath(const QString &module)
{
    return "/com/corvane/Pelorin/" + module;
}

QString VYXModule::interfaceName()
{
    return "com.corvane.Pelorin.VYXInterface";
}

void VYXModule::fail(const QString &reason)
{
    std::fprintf(stderr, "%s: %s\n", qPrintable(QCoreApplication::applicationName()), qPrintable(reason));
    QCoreApplication::exit(1);
}

void VYXModule::start()
{
    if (!QDBusConnection::systemBus().isConnected()) {
        fail("no connection to the system bus: " + QDBusConnection::systemBus().lastError().message());
        return;
    }
    if (isNameTaken()) {
        fail("the bus name " + busName(moduleName) + " is taken");
        return;
    }
    watchBus();
    answerDataRequests();
    if (!runLifeCycle()) {
        fail("module '" + moduleName + "' could not start");
        return;
    }
    if (VYXApplication::isEnding()) {
        return;
    }
    if (!takeBusName()) {
        fail("could not take the bus name " + busName(moduleName));
        return;
    }
    notifier.ready();
}

bool VYXModule::isNameTaken() const
{
    return QDBusConnection::systemBus().interface()->isServiceRegistered(busName(moduleName));
}

void VYXModule::watchBus()
{
    // The bus library itself sends this signal, to this process alone.
    QDBusConnection::systemBus().connect({}, "/org/freedesktop/DBus/Local", "org.freedesktop.DBus.Local",
                                         "Disconnected", this, SLOT(endWithoutBus()));
}

void VYXModule::endWithoutBus()
{
    if (!VYXApplication::isEnding()) {
        logError("The connection to the system bus is lost: ending");
        VYXApplication::requestEnd(EXIT_FAILURE);
    }
}

bool VYXModule::runLifeCycle()
{
    return Check() && Deploy() && Init() && Run();
}

void VYXModule::stop()
{
    notifier.stopping();
    Stop();
}

bool VYXModule::takeBusName()
{
    QDBusConnection bus = QDBusConnection::systemBus();
    const auto exported = adaptor != nullptr
                              ? QDBusConnection::ExportAdaptors
                              : QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllInvokables;
    if (!bus.registerObject(objectPath(moduleName), this, exported)) {
        return false;
    }
    const auto reply =
        bus.interface()->registerService(busName(moduleName), QDBusConnectionInterface::DontQueueService,
                                         QDBusConnectionInterface::DontAllowReplacement);
    return reply.isValid() && reply.value() == QDBusConnectionInterface::ServiceRegistered;
}

void VYXModule::answerDataRequests()
{
    if (answersPauseRequests()) {
        subscribeEvent("stop_save_restore", this, [this](const VYXEvent &event) { pauseOnRequest(event); });
    }
    if (answersResetRequests()) {
        subscribeEvent("reset_data_default", this, [this](const VYXEvent &) {
            reportReset("reset_default_done", restoreDataToDefault());
        });
        subscribeEvent("reset_data_factory", this, [this](const VYXEvent &) {
            reportReset("reset_factory_done", restoreDataToFactory());
        });
    }
}

void VYXModule::pauseOnRequest(const VYXEvent &event)
{
    if (!event.getArgument("ModulesPidsList").toString().split(':').contains(moduleName)) {
        return;
    }
    preSaveForSaveRestore();
    notifyEvent("stop_save_restore_OK", {{"ModuleName", moduleName}});
    flushBus();
    QElapsedTimer timer;
    timer.start();
    kill(getpid(), SIGSTOP);
    logDebug("Was paused for %1 us", timer.nsecsElapsed() / 1000);
}

void VYXModule::reportReset(const QString &event, bool needReboot)
{
    notifyEvent(event, {{"ModuleName", moduleName}, {"NeedReboot", needReboot}});
}

void VYXModule::flushBus()
{
    // The reply to a call proves that everything queued before it was written.
    QDBusConnection::systemBus().interface()->isServiceRegistered("org.freedesktop.DBus");
}

MapQStringCapability VYXModule::getCapabilities()
{
    return capabilities;
}

MapQStringCapability VYXModule::getCapabilities(int)
{
    return capabilities;
}

Capability VYXModule::getCapability(QString name)
{
    return capabilities.value(name, Capability(name, Capability::UNAVAILABLE));
}

Capability VYXModule::getCapability(int, QString name)
{
    return getCapability(std::move(name));
}

void VYXModule::setCapability(const Capability &capability)
{
    const QString name = capability.getName();
    const bool changed = !capabilities.contains(name) || !(capabilities.value(name) == capability);
    capabilities.insert(name, capability);
    if (changed) {
        notifyEvent(
            "capability_changed",
            {{"ModuleName", moduleName}, {"Name", name}, {"State", static_cast<int>(capability.getState())}});
    }
}

void VYXModule::setCapabilities(const MapQStringCapability &newCapabilities)
{
    for (auto known = capabilities.begin(); known != capabilities.end();) {
        known = newCapabilities.contains(known.key()) ? std::next(known) : capabilities.erase(known);
    }
    for (const Capability &capability : newCapabilities) {
        setCapability(capability);
    }
}

void VYXModule::subscribeEvent(const QString &event, QObject *receiver,
                               std::function<void(const VYXEvent &)> handler)
{
    auto *subscription = new VYXEventSubscription(receiver, std::move(handler));
    if (!QDBusConnection::systemBus().connect({}, {}, eventInterface(), event, subscription,
                                              SLOT(received(QDBusMessage)))) {
        logError("Could not subscribe to the event '%1'", event);
    }
}

void VYXModule::notifyEvent(const VYXEvent &event)
{
    QDBusMessage message =
        QDBusMessage::createSignal(objectPath(moduleName), eventInterface(), event.getName());
    message << event.getArguments() << event.getText();
    QDBusConnection::systemBus().send(message);
}

void VYXModule::notifyEvent(const QString &name, const QVariantMap &arguments)
{
    notifyEvent(VYXEvent(name, arguments));
}

QDBusMessage VYXModule::callMessage(const QString &module, const QString &method,
                                    const QVariantList &arguments) const
{
    QDBusMessage message =
        QDBusMessage::createMethodCall(busName(module), objectPath(module), interfaceName(), method);
    message.setArguments(arguments);
    message.setAutoStartService(false);
    return message;
}

QDBusMessage VYXModule::syncRemoteCall(const QString &module, const QString &method,
                                       const QVariantList &arguments)
{
    const QDBusMessage reply = QDBusConnection::systemBus().call(callMessage(module, method, arguments),
                                                                 QDBus::Block, remoteCallLimitMs);
    if (isUnreachable(reply)) {
        throw new VYXException(this, VYXException::ModuleUnreachable, reply.errorMessage());
    }
    return reply;
}

QString VYXModule::processIdOf(const QString &module)
{
    const QDBusReply<uint> pid = QDBusConnection::systemBus().interface()->servicePid(busName(module));
    return pid.isValid() ? QString::number(pid.value()) : QString();
}

RemoteCallResult VYXModule::callModule(const QString &module, const QString &method,
                                       const QVariantList &arguments, Waiter &waiter)
{
    // The bus library itself answers with an error when the limit has passed.
    const QDBusPendingCallWatcher call(
        QDBusConnection::systemBus().asyncCall(callMessage(module, method, arguments), remoteCallLimitMs));
    const std::chrono::milliseconds limit(2 * remoteCallLimitMs);
    if (waiter.waitUntil([&call] { return call.isFinished(); }, limit) != WaitOutcome::Met) {
        return {RemoteCallResult::Unreachable, {}, "the wait for the answer had to end"};
    }
    const QDBusMessage reply = call.reply();
    if (isUnreachable(reply)) {
        return {RemoteCallResult::Unreachable, {}, reply.errorMessage()};
    }
    if (reply.type() == QDBusMessage::ErrorMessage) {
        return {RemoteCallResult::ErrorReply, {}, reply.errorMessage()};
    }
    return {RemoteCallResult::Answered, reply.arguments().value(0), {}};
}

void VYXModule::asyncRemoteCall(const QString &module, const QString &method, const QVariantList &arguments)
{
    QDBusConnection::systemBus().asyncCall(callMessage(module, method, arguments));
}

void VYXModule::showPopup(const QString &text, int type, int timeout, const QStringList &buttons,
                          const QString &detail, const QStringList &parameters, const QVariantMap &options)
{
    notifyEvent("show_popup", {{"Text", text},
                               {"Type", type},
                               {"Timeout", timeout},
                               {"Buttons", buttons},
                               {"Detail", detail},
                               {"Parameters", parameters},
                               {"Options", options}});
}
