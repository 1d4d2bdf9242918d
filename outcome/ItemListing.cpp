#include "outcome/ItemListing.h"

#include <QDBusMetaType>

QDBusArgument &operator<<(QDBusArgument &argument, const PreviewedItem &item)
{
    argument.beginStructure();
    argument << item.module << item.item << item.action << item.why;
    argument.endStructure();
    return argument;
}

const QDBusArgument &operator>>(const QDBusArgument &argument, PreviewedItem &item)
{
    argument.beginStructure();
    argument >> item.module >> item.item >> item.action >> item.why;
    argument.endStructure();
    return argument;
}

void registerDBusItemListing()
{
    qDBusRegisterMetaType<PreviewedItem>();
    qRegisterMetaType<PreviewList>("PreviewList");
    qDBusRegisterMetaType<PreviewList>();
    qRegisterMetaType<ItemList>("ItemList");
    qDBusRegisterMetaType<ItemList>();
}
