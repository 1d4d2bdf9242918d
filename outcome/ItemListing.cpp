#include "outcome/ItemListing.h"

#include <QDBusMetaType>

#include <numeric>

namespace {

/// Half of what a system bus passes on.
constexpr qsizetype largestAnswer = qsizetype{16} * 1024 * 1024;
/// Of a text beside its own bytes: length, alignment, the type of a variant.
constexpr qsizetype besideText = 16;

qsizetype sizeOf(const QString &text)
{
    return text.toUtf8().size() + besideText;
}

qsizetype sizeOf(const PreviewedItem &item)
{
    return sizeOf(item.module) + sizeOf(item.item) + sizeOf(item.action) + sizeOf(item.why);
}

qsizetype sizeOf(const QVariantMap &item)
{
    qsizetype size = 0;
    for (auto field = item.cbegin(); field != item.cend(); ++field) {
        size += sizeOf(field.key()) + sizeOf(field.value().toString());
    }
    return size;
}

template <typename List> bool isSmall(const List &items)
{
    const auto add = [](qsizetype size, const auto &item) { return size + sizeOf(item); };
    return std::accumulate(items.cbegin(), items.cend(), qsizetype{0}, add) <= largestAnswer;
}

} // namespace

bool fitsAnswer(const ItemList &items)
{
    return isSmall(items);
}

bool fitsAnswer(const PreviewList &items)
{
    return isSmall(items);
}

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
