#pragma once

#include "platform/core/RemoteCall.h"
#include "platform/core/VYXEvent.h"

#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

#include <functional>

class QObject;
class Waiter;

/// What the middleware offers to a part of a module: calls to other modules, events, pop-ups.
class Middleware
{
public:
    virtual ~Middleware() = default;

    /// The name of the own module.
    virtual QString getModuleName() const = 0;

    /// The id of the process that owns a module's name on the bus, as text; empty when there is none.
    virtual QString processIdOf(const QString &module) = 0;

    /// Call a method of another module and wait for its answer, at most 25 s. Throws nothing.
    virtual RemoteCallResult callModule(const QString &module, const QString &method,
                                        const QVariantList &arguments, Waiter &waiter) = 0;

    /// Call a method of another module without waiting; the reply is dropped.
    virtual void asyncRemoteCall(const QString &module, const QString &method,
                                 const QVariantList &arguments) = 0;

    virtual void notifyEvent(const VYXEvent &event) = 0;

    /// Call `handler` for each event of that name, whoever publishes it, as long as `receiver` lives.
    virtual void subscribeEvent(const QString &event, QObject *receiver,
                                std::function<void(const VYXEvent &)> handler) = 0;

    /// Ask the user interface for a pop-up: the event "show_popup". `timeout` in milliseconds, -1 for none.
    virtual void showPopup(const QString &text, int type, int timeout, const QStringList &buttons,
                           const QString &detail, const QStringList &parameters,
                           const QVariantMap &options) = 0;

    /// Show the user that something failed.
    void showFailure(const QString &text, const QString &detail = {});

    /// Log an error and show it.
    void reportFailure(const QString &text);
};
