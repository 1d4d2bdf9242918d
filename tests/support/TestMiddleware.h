#pragma once

#include "platform/core/Middleware.h"

#include <QMap>

/// A middleware without a bus: it notes pop-ups and answers calls from a table.
class TestMiddleware : public Middleware
{
public:
    QMap<QString, RemoteCallResult> results; ///< of "Module.method"; other calls are answered without a value
    QStringList popups;                      ///< text of each pop-up, and "text|detail" of one with a detail

    QString getModuleName() const override { return "VYXSaveRestore"; }
    QString processIdOf(const QString &) override { return {}; }
    RemoteCallResult callModule(const QString &module, const QString &method, const QVariantList &,
                                Waiter &) override
    {
        return results.value(module + "." + method);
    }
    void asyncRemoteCall(const QString &, const QString &, const QVariantList &) override {}
    void notifyEvent(const VYXEvent &) override {}
    void subscribeEvent(const QString &, QObject *, std::function<void(const VYXEvent &)>) override {}
    void showPopup(const QString &text, int, int, const QStringList &, const QString &detail,
                   const QStringList &, const QVariantMap &) override
    {
        popups << (detail.isEmpty() ? text : text + "|" + detail);
    }
};
