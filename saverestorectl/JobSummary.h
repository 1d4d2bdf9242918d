#pragma once

#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QVariantMap>

/// A map that came from the bus, also within another value; empty when it is none.
QVariantMap toMap(const QVariant &value);

/// What has become of an operation, as the service tells it. What it does not tell keeps its default.
struct JobSummary
{
    struct Item
    {
        QString module;
        QString item;
        QString what; ///< what was done to it, or why it could not be
        quint64 bytes = 0;
    };
    struct Group
    {
        QStringList modules;
        QMap<QString, double> steps; ///< seconds since the begin
    };
    struct Count
    {
        quint64 items = 0;
        quint64 bytes = 0;
    };

    quint32 job = 0;
    QString operation;
    quint64 started = 0; ///< seconds since the epoch
    double seconds = 0;
    QString code;
    QString text;
    bool dryRun = false;
    Count done;
    Count skipped;
    Count failed;
    QList<Item> failures;
    QList<Item> changes;
    QList<Group> groups;
    QStringList leftOver;
    bool leftOverKnown = true;
    /// Of the last operation of its kind: when one has begun that succeeded; 0 when none is known.
    quint64 lastSuccess = 0;

    bool succeeded() const { return code == "Success"; }

    static JobSummary of(const QVariantMap &map);
    QJsonObject toJson() const;

    /// The steps of a group in their order.
    static const QStringList &stepNames();
};
