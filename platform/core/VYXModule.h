#pragma once

#include "platform/core/Middleware.h"
#include "platform/core/SystemdNotifier.h"
#include "platform/core/VYXEvent.h"
#include "platform/core/VYXException.h"
#include "platform/records/Capability.h"

#include <QDBusAbstractAdaptor>
#include <QDBusContext>
#include <QDBusMessage>
#include <QObject>
#include <QStringList>
#include <QVariantMap>

#include <functional>

/// Base of every middleware module: its life cycle, its place on the bus, events, remote calls, capabilities.
///
/// Module M owns the bus name "com.corvane.Pelorin.M" and serves the object "/com/corvane/Pelorin/M"; its
/// methods are on the interface "com.corvane.Pelorin.VYXInterface". Once the event loop runs, the base calls
/// `Check`, `Deploy`, `Init` and `Run`, then takes the name: who owns the name is ready. Without a bus, with
/// a name that is taken (seen before `Check`), or when one of the four returns false, one line on standard
/// error says so and the process ends with status 1. When the process is asked to end, `Stop` is called; so
/// it is when the bus goes away, and the status is 1. systemd hears that the module is ready, that its event
/// loop runs, and that it ends.
class VYXModule : public QObject, public QDBusContext, public Middleware
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.corvane.Pelorin.VYXInterface")

public:
    explicit VYXModule(QString moduleName);

    QString getModuleName() const override { return moduleName; }

    static QString busName(const QString &module);
    static QString objectPath(const QString &module);
    static QString interfaceName();

    virtual bool Check() { return true; }
    virtual bool Deploy() { return true; }
    virtual bool Init() { return true; }
    virtual bool Run() { return true; }
    virtual void presentation_loaded() {}
    virtual void presentation_stop() {}
    virtual bool Stop() { return true; }

    /// Called before the process pauses for a save or restore: close what must be consistent on disk.
    virtual void preSaveForSaveRestore() {}
    virtual void postRestoreForSaveRestore() {}
    /// Put the module's own data to their default state; true when the device must be rebooted for it.
    virtual bool restoreDataToDefault() { return false; }
    /// Put the module's own data to their factory state; true when the device must be rebooted for it.
    virtual bool restoreDataToFactory() { return false; }

    Q_INVOKABLE virtual MapQStringCapability getCapabilities();
    /// There is one list of capabilities; its number is not looked at.
    Q_INVOKABLE virtual MapQStringCapability getCapabilities(int listId);
    /// The capability of a name; an unknown one is UNAVAILABLE.
    Q_INVOKABLE virtual Capability getCapability(QString name);
    Q_INVOKABLE virtual Capability getCapability(int listId, QString name);

    /// Store a capability; when that changes it, "capability_changed" is published.
    void setCapability(const Capability &capability);
    /// Replace all capabilities, publishing each that is new or changed.
    void setCapabilities(const MapQStringCapability &newCapabilities);

    void subscribeEvent(const QString &event, QObject *receiver,
                        std::function<void(const VYXEvent &)> handler) override;

    void notifyEvent(const VYXEvent &event) override;
    void notifyEvent(const QString &name, const QVariantMap &arguments);

    /// Call a method of another module and wait for its reply, at most 25 s; no events are dispatched
    /// meanwhile. An error reply is returned as the reply. Throws `VYXException *` when the module is not on
    /// the bus.
    QDBusMessage syncRemoteCall(const QString &module, const QString &method, const QVariantList &arguments);

    QString processIdOf(const QString &module) override;
    RemoteCallResult callModule(const QString &module, const QString &method, const QVariantList &arguments,
                                Waiter &waiter) override;
    void asyncRemoteCall(const QString &module, const QString &method,
                         const QVariantList &arguments) override;
    void showPopup(const QString &text, int type, int timeout, const QStringList &buttons,
                   const QString &detail, const QStringList &parameters, const QVariantMap &options) override;

protected:
    /// True when the base pauses this module's process for a save or a restore.
    virtual bool answersPauseRequests() const { return true; }
    /// True when the base has this module reset its data and reports it.
    virtual bool answersResetRequests() const { return true; }

    /// Keep the adaptor that the module created in `Run`; it must be a child of the module.
    void setAdaptor(QDBusAbstractAdaptor *newAdaptor) { adaptor = newAdaptor; }

    /// Wait until what was sent so far has left the process.
    void flushBus();

private Q_SLOTS:
    void endWithoutBus();

private:
    void start();
    bool isNameTaken() const;
    void watchBus();
    void stop();
    bool runLifeCycle();
    bool takeBusName();
    void answerDataRequests();
    void pauseOnRequest(const VYXEvent &event);
    void reportReset(const QString &event, bool needReboot);
    QDBusMessage callMessage(const QString &module, const QString &method,
                             const QVariantList &arguments) const;
    static void fail(const QString &reason);

    QString moduleName;
    SystemdNotifier notifier;
    MapQStringCapability capabilities;
    QDBusAbstractAdaptor *adaptor = nullptr;
};
