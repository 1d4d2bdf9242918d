#pragma once

#include "outcome/ItemListing.h"
#include "outcome/OperationSummary.h"
#include "platform/core/VYXModule.h"
#include "tests/support/TestDevice.h"

#include <QDBusConnection>
#include <QDBusMessage>

#include <algorithm>

/// Jobs of a device's service, through its control interface.
class Jobs : public QObject
{
    Q_OBJECT

public:
    struct End
    {
        quint32 job = 0;
        QString operation;
        QString code;
        QVariantMap summary;

        /// "module/item" of each that failed.
        QStringList failed() const
        {
            QStringList names;
            for (const FailedItem &one : qdbus_cast<QList<FailedItem>>(summary["failed"])) {
                names << one.module + "/" + one.item;
            }
            names.sort();
            return names;
        }
        /// "action module/item" of each that was done.
        QStringList changes() const
        {
            QStringList names;
            for (const ItemChange &one : qdbus_cast<QList<ItemChange>>(summary["changes"])) {
                names << one.action + " " + one.module + "/" + one.item;
            }
            names.sort();
            return names;
        }
    };

    QList<End> ended; ///< operations that have, whoever began them

    explicit Jobs(const TestDevice &device) : bus(device.bus())
    {
        registerDBusOperationSummary();
        registerDBusItemListing();
        bus.connect({}, path(), interface(), "Finished", this,
                    SLOT(note(uint, QString, QString, QVariantMap)));
    }

    QDBusMessage call(const QString &method, const QVariantList &arguments = {})
    {
        return bus.call(messageFor(method, arguments), QDBus::Block, callLimitMs);
    }
    /// Without waiting for the answer.
    void cast(const QString &method) { bus.asyncCall(messageFor(method, {}), callLimitMs); }

    /// How a job ends, or, without its number, the next operation.
    End endOf(quint32 job = 0)
    {
        const auto isIt = [job](const End &end) { return job == 0 || end.job == job; };
        const auto find = [&] { return std::find_if(ended.cbegin(), ended.cend(), isIt); };
        const bool told = TestDevice::waitUntil([&] { return find() != ended.cend(); }, callLimitMs);
        return told ? ended.takeAt(find() - ended.cbegin()) : End();
    }

    /// How the job ends; its code is the error's name when it was refused.
    End run(const QString &method, const QVariantMap &options = {})
    {
        const QDBusMessage reply = call(method, {options});
        return reply.type() == QDBusMessage::ReplyMessage ? endOf(reply.arguments().value(0).toUInt())
                                                          : End{0, method, reply.errorName(), {}};
    }

    PreviewList preview() { return qdbus_cast<PreviewList>(call("Preview").arguments().value(0)); }

private Q_SLOTS:
    void note(uint job, const QString &operation, const QString &code, const QVariantMap &summary)
    {
        ended << End{job, operation, code, summary};
    }

private:
    static constexpr int callLimitMs = 120000;

    static QString path() { return VYXModule::objectPath("VYXSaveRestore"); }
    static QString interface() { return "com.corvane.Pelorin.SaveRestoreControl1"; }
    static QDBusMessage messageFor(const QString &method, const QVariantList &arguments)
    {
        QDBusMessage message =
            QDBusMessage::createMethodCall(VYXModule::busName("VYXSaveRestore"), path(), interface(), method);
        message.setArguments(arguments);
        return message;
    }

    QDBusConnection bus;
};
