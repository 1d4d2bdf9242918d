#pragma once

#include "outcome/Code.h"

#include <QByteArray>
#include <QDBusArgument>
#include <QList>
#include <QMap>
#include <QStringList>
#include <QVariantMap>

#include <optional>

/// How many of something there were, and their bytes as far as they are known.
struct ItemCount
{
    quint32 items = 0;
    quint64 bytes = 0;
};

/// An item that could not be dealt with. On the bus a struct of its three fields.
struct FailedItem
{
    QString module;
    QString item;
    QString reason;
};

/// Something that was done to an item. On the bus a struct of its four fields.
struct ItemChange
{
    QString module;
    QString item;
    QString action; ///< "sent", "removed", "replaced", "created"
    quint64 bytes = 0;
};

/// The steps of a group of modules that was paused, in seconds since the begin of the operation.
struct GroupTimes
{
    QStringList modules;
    QMap<QString, double> steps; ///< by "asked", "paused", "copied", "resumed", "staged", "sent"
};

/// What has become of an operation.
struct OperationSummary
{
    static constexpr qsizetype mostFailed = 100;
    static constexpr qsizetype mostChanges = 1000;
    static constexpr qsizetype mostGroups = 200;
    static constexpr qsizetype mostLeftOver = 1000;

    quint32 job = 0;
    QString operation;   ///< "save", "restore", "reset", "verify"
    quint64 started = 0; ///< in seconds since the epoch
    double seconds = 0;
    Outcome::Code code = Outcome::Code::Success;
    QString text;
    bool dryRun = false;
    ItemCount done;
    ItemCount skipped;
    ItemCount failed;
    QList<FailedItem> failedItems; ///< the first ones, here and below
    QList<ItemChange> changes;
    QList<GroupTimes> groups;
    std::optional<QStringList> leftOver; ///< of a verify that could list the repository

    /// As the bus has it: see the description of the control interface.
    QVariantMap toMap() const;

    /// As it is kept on the disk; nothing when the text is none of these.
    QByteArray toJson() const;
    static std::optional<OperationSummary> fromJson(const QByteArray &text);
};

/// To be called once before a summary is sent.
void registerDBusOperationSummary();

QDBusArgument &operator<<(QDBusArgument &argument, const FailedItem &item);
const QDBusArgument &operator>>(const QDBusArgument &argument, FailedItem &item);
QDBusArgument &operator<<(QDBusArgument &argument, const ItemChange &change);
const QDBusArgument &operator>>(const QDBusArgument &argument, ItemChange &change);

Q_DECLARE_METATYPE(FailedItem)
Q_DECLARE_METATYPE(ItemChange)
