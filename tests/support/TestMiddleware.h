#pragma once

#include "platform/core/Middleware.h"

#include <QMap>
#include <QPointer>

#include <vector>

/// A middleware without a bus: it notes what it is asked for and answers calls from a table.
class TestMiddleware : public Middleware
{
public:
    QMap<QString, RemoteCallResult> results; ///< of "Module.method"; other calls are answered without a value
    QStringList calls;                       ///< "Module.method" of each call, waited for or not
    QList<VYXEvent> events;
    QStringList popups; ///< text of each pop-up, and "text|detail" of one with a detail

    /// Hand an event to those who have subscribed to it.
    void publish(const VYXEvent &event) const
    {
        for (const Subscription &subscription : std::vector(subscriptions)) {
            if (subscription.receiver && subscription.event == event.getName()) {
                subscription.handler(event);
            }
        }
    }

    QString getModuleName() const override { return "VYXSaveRestore"; }
    QString processIdOf(const QString &) override { return {}; }
    RemoteCallResult callModule(const QString &module, const QString &method, const QVariantList &,
                                Waiter &) override
    {
        calls << module + "." + method;
        return results.value(calls.last());
    }
    void asyncRemoteCall(const QString &module, const QString &method, const QVariantList &) override
    {
        calls << module + "." + method;
    }
    void notifyEvent(const VYXEvent &event) override { events << event; }
    void subscribeEvent(const QString &event, QObject *receiver,
                        std::function<void(const VYXEvent &)> handler) override
    {
        subscriptions.push_back({event, receiver, std::move(handler)});
    }
    void showPopup(const QString &text, int, int, const QStringList &, const QString &detail,
                   const QStringList &, const QVariantMap &) override
    {
        popups << (detail.isEmpty() ? text : text + "|" + detail);
    }

private:
    struct Subscription
    {
        QString event;
        QPointer<QObject> receiver;
        std::function<void(const VYXEvent &)> handler;
    };

    std::vector<Subscription> subscriptions;
};
