#pragma once

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QVariant>

#include <optional>

/// An item that the repository holds.
struct RepositoryItem
{
    QString module;
    QString item;
    QString kind;
    QString priority;
    QString digest;
    QString entry;
    std::optional<quint64> size; ///< where it is known

    /// What the method List returned.
    static QList<RepositoryItem> list(const QVariant &answer);
    QJsonObject toJson() const;
};

/// What a restore would do with an item.
struct PreviewedItem
{
    QString module;
    QString item;
    QString action;
    QString why;

    /// What the method Preview returned.
    static QList<PreviewedItem> list(const QVariant &answer);
};
