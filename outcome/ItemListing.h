#pragma once

#include <QDBusArgument>
#include <QList>
#include <QString>
#include <QVariantMap>

/// What a restore would do with an item. On the bus a struct of its four fields.
struct PreviewedItem
{
    QString module;
    QString item;
    QString action; ///< "same", "replace", "create", "keep"
    QString why;

    friend bool operator==(const PreviewedItem &left, const PreviewedItem &right) = default;
};

using PreviewList = QList<PreviewedItem>;

/// Items of the repository, each with what is known of it by name.
using ItemList = QList<QVariantMap>;

QDBusArgument &operator<<(QDBusArgument &argument, const PreviewedItem &item);
const QDBusArgument &operator>>(const QDBusArgument &argument, PreviewedItem &item);

/// True when the list is no larger than an answer on the bus may be: a larger one ends the connection.
bool fitsAnswer(const ItemList &items);
bool fitsAnswer(const PreviewList &items);

/// To be called once before one of the lists is sent.
void registerDBusItemListing();

Q_DECLARE_METATYPE(PreviewedItem)
