#include "outcome/OperationSummary.h"

#include <QDBusMetaType>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

using GroupList = QList<QVariantMap>;

QJsonArray jsonOf(const ItemCount &count)
{
    return {static_cast<qint64>(count.items), static_cast<qint64>(count.bytes)};
}

ItemCount countOf(const QJsonValue &value)
{
    return {static_cast<quint32>(value[0].toInteger()), static_cast<quint64>(value[1].toInteger())};
}

} // namespace

QVariantMap OperationSummary::toMap() const
{
    GroupList groupMaps;
    for (const GroupTimes &group : groups) {
        QVariantMap map = {{"modules", group.modules}};
        for (auto step = group.steps.cbegin(); step != group.steps.cend(); ++step) {
            map.insert(step.key(), step.value());
        }
        groupMaps << map;
    }
    QVariantMap map = {{"job", job},
                       {"operation", operation},
                       {"started", started},
                       {"seconds", seconds},
                       {"code", Outcome::name(code)},
                       {"text", text},
                       {"dryRun", dryRun},
                       {"itemsDone", done.items},
                       {"itemsSkipped", skipped.items},
                       {"itemsFailed", failed.items},
                       {"bytesDone", done.bytes},
                       {"bytesSkipped", skipped.bytes},
                       {"bytesFailed", failed.bytes},
                       {"failed", QVariant::fromValue(failedItems)},
                       {"changes", QVariant::fromValue(changes)},
                       {"groups", QVariant::fromValue(groupMaps)}};
    if (operation == "verify") {
        map.insert("leftOver", leftOver.value_or(QStringList()));
        map.insert("leftOverKnown", leftOver.has_value());
    }
    return map;
}

QByteArray OperationSummary::toJson() const
{
    QJsonArray failedList;
    for (const FailedItem &item : failedItems) {
        failedList << QJsonArray{item.module, item.item, item.reason};
    }
    QJsonArray changeList;
    for (const ItemChange &change : changes) {
        changeList << QJsonArray{change.module, change.item, change.action,
                                 static_cast<qint64>(change.bytes)};
    }
    QJsonArray groupList;
    for (const GroupTimes &group : groups) {
        QJsonObject steps;
        for (auto step = group.steps.cbegin(); step != group.steps.cend(); ++step) {
            steps.insert(step.key(), step.value());
        }
        groupList << QJsonArray{QJsonArray::fromStringList(group.modules), steps};
    }
    QJsonObject object = {{"job", static_cast<qint64>(job)},
                          {"operation", operation},
                          {"started", static_cast<qint64>(started)},
                          {"seconds", seconds},
                          {"code", Outcome::name(code)},
                          {"text", text},
                          {"dryRun", dryRun},
                          {"done", jsonOf(done)},
                          {"skipped", jsonOf(skipped)},
                          {"failed", jsonOf(failed)},
                          {"failedItems", failedList},
                          {"changes", changeList},
                          {"groups", groupList}};
    if (leftOver) {
        object.insert("leftOver", QJsonArray::fromStringList(*leftOver));
    }
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

std::optional<OperationSummary> OperationSummary::fromJson(const QByteArray &text)
{
    const QJsonObject object = QJsonDocument::fromJson(text).object();
    if (!object.contains("operation")) {
        return std::nullopt;
    }
    OperationSummary summary;
    summary.job = static_cast<quint32>(object["job"].toInteger());
    summary.operation = object["operation"].toString();
    summary.started = static_cast<quint64>(object["started"].toInteger());
    summary.seconds = object["seconds"].toDouble();
    summary.code = Outcome::codeOf(object["code"].toString());
    summary.text = object["text"].toString();
    summary.dryRun = object["dryRun"].toBool();
    summary.done = countOf(object["done"]);
    summary.skipped = countOf(object["skipped"]);
    summary.failed = countOf(object["failed"]);
    for (const QJsonValue item : object["failedItems"].toArray()) {
        summary.failedItems << FailedItem{item[0].toString(), item[1].toString(), item[2].toString()};
    }
    for (const QJsonValue change : object["changes"].toArray()) {
        summary.changes << ItemChange{change[0].toString(), change[1].toString(), change[2].toString(),
                                      static_cast<quint64>(change[3].toInteger())};
    }
    for (const QJsonValue group : object["groups"].toArray()) {
        GroupTimes times = {group[0].toVariant().toStringList(), {}};
        const QJsonObject steps = group[1].toObject();
        for (auto step = steps.constBegin(); step != steps.constEnd(); ++step) {
            times.steps.insert(step.key(), step.value().toDouble());
        }
        summary.groups << times;
    }
    if (object.contains("leftOver")) {
        summary.leftOver = object["leftOver"].toVariant().toStringList();
    }
    return summary;
}

void registerDBusOperationSummary()
{
    qDBusRegisterMetaType<FailedItem>();
    qDBusRegisterMetaType<QList<FailedItem>>();
    qDBusRegisterMetaType<ItemChange>();
    qDBusRegisterMetaType<QList<ItemChange>>();
    qDBusRegisterMetaType<GroupList>();
}

QDBusArgument &operator<<(QDBusArgument &argument, const FailedItem &item)
{
    argument.beginStructure();
    argument << item.module << item.item << item.reason;
    argument.endStructure();
    return argument;
}

const QDBusArgument &operator>>(const QDBusArgument &argument, FailedItem &item)
{
    argument.beginStructure();
    argument >> item.module >> item.item >> item.reason;
    argument.endStructure();
    return argument;
}

QDBusArgument &operator<<(QDBusArgument &argument, const ItemChange &change)
{
    argument.beginStructure();
    argument << change.module << change.item << change.action << change.bytes;
    argument.endStructure();
    return argument;
}

const QDBusArgument &operator>>(const QDBusArgument &argument, ItemChange &change)
{
    argument.beginStructure();
    argument >> change.module >> change.item >> change.action >> change.bytes;
    argument.endStructure();
    return argument;
}
