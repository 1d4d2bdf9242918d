#include "saverestorectl/RepositoryItem.h"

#include <QDBusArgument>
#include <QVariantMap>

namespace {

bool hasSignature(const QVariant &value, const char *signature)
{
    return value.metaType() == QMetaType::fromType<QDBusArgument>() &&
           value.value<QDBusArgument>().currentSignature() == signature;
}

} // namespace

QList<RepositoryItem> RepositoryItem::list(const QVariant &answer)
{
    QList<RepositoryItem> items;
    if (!hasSignature(answer, "aa{sv}")) {
        return items;
    }
    for (const QVariantMap &map : qdbus_cast<QList<QVariantMap>>(answer)) {
        const auto text = [&](const char *name) { return map.value(name).toString(); };
        RepositoryItem item = {
            text("module"), text("item"), text("kind"), text("priority"), text("digest"), text("entry"), {}};
        if (map.contains("size")) {
            item.size = map.value("size").toULongLong();
        }
        items << item;
    }
    return items;
}

QJsonObject RepositoryItem::toJson() const
{
    QJsonObject object = {{"module", module},     {"item", item},     {"kind", kind},
                          {"priority", priority}, {"digest", digest}, {"entry", entry}};
    if (size) {
        object.insert("size", static_cast<qint64>(*size));
    }
    return object;
}

QList<PreviewedItem> PreviewedItem::list(const QVariant &answer)
{
    QList<PreviewedItem> items;
    if (!hasSignature(answer, "a(ssss)")) {
        return items;
    }
    const auto argument = answer.value<QDBusArgument>();
    argument.beginArray();
    while (!argument.atEnd()) {
        PreviewedItem item;
        argument.beginStructure();
        argument >> item.module >> item.item >> item.action >> item.why;
        argument.endStructure();
        items << item;
    }
    argument.endArray();
    return items;
}
