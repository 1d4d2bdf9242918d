#include "saverestorectl/JobSummary.h"

#include <QDBusArgument>
#include <QDBusVariant>
#include <QJsonArray>

namespace {

QVariant unwrapped(const QVariant &value)
{
    return value.metaType() == QMetaType::fromType<QDBusVariant>() ? value.value<QDBusVariant>().variant()
                                                                   : value;
}

bool isArgument(const QVariant &value, const char *signature)
{
    return value.metaType() == QMetaType::fromType<QDBusArgument>() &&
           value.value<QDBusArgument>().currentSignature() == signature;
}

/// Of an array of structs with three texts, or two and a number; the last field of three is a text.
QList<JobSummary::Item> itemsOf(const QVariant &value, bool withBytes)
{
    QList<JobSummary::Item> items;
    if (!isArgument(value, withBytes ? "a(ssst)" : "a(sss)")) {
        return items;
    }
    const auto argument = value.value<QDBusArgument>();
    argument.beginArray();
    while (!argument.atEnd()) {
        JobSummary::Item item;
        argument.beginStructure();
        argument >> item.module >> item.item >> item.what;
        if (withBytes) {
            argument >> item.bytes;
        }
        argument.endStructure();
        items << item;
    }
    argument.endArray();
    return items;
}

QList<JobSummary::Group> groupsOf(const QVariant &value)
{
    QList<JobSummary::Group> groups;
    if (!isArgument(value, "aa{sv}")) {
        return groups;
    }
    for (const QVariantMap &map : qdbus_cast<QList<QVariantMap>>(value)) {
        JobSummary::Group group;
        group.modules = unwrapped(map.value("modules")).toStringList();
        for (const QString &step : JobSummary::stepNames()) {
            if (map.contains(step)) {
                group.steps.insert(step, unwrapped(map.value(step)).toDouble());
            }
        }
        groups << group;
    }
    return groups;
}

QJsonArray toArray(const QList<JobSummary::Item> &items, const char *what)
{
    QJsonArray array;
    for (const JobSummary::Item &item : items) {
        QJsonObject object = {{"module", item.module}, {"item", item.item}, {what, item.what}};
        if (QString("action") == what) {
            object.insert("bytes", static_cast<qint64>(item.bytes));
        }
        array << object;
    }
    return array;
}

QJsonArray toArray(const QList<JobSummary::Group> &groups)
{
    QJsonArray array;
    for (const JobSummary::Group &group : groups) {
        QJsonObject object = {{"modules", QJsonArray::fromStringList(group.modules)}};
        for (auto step = group.steps.cbegin(); step != group.steps.cend(); ++step) {
            object.insert(step.key(), step.value());
        }
        array << object;
    }
    return array;
}

QJsonObject toObject(const JobSummary::Count &count)
{
    return {{"items", static_cast<qint64>(count.items)}, {"bytes", static_cast<qint64>(count.bytes)}};
}

} // namespace

QVariantMap toMap(const QVariant &value)
{
    const QVariant inner = unwrapped(value);
    return isArgument(inner, "a{sv}") ? qdbus_cast<QVariantMap>(inner) : inner.toMap();
}

const QStringList &JobSummary::stepNames()
{
    static const QStringList names = {"asked", "paused", "copied", "resumed", "staged", "sent"};
    return names;
}

JobSummary JobSummary::of(const QVariantMap &map)
{
    const auto number = [&](const char *name) { return map.value(name).toULongLong(); };
    JobSummary summary;
    summary.job = map.value("job").toUInt();
    summary.operation = map.value("operation").toString();
    summary.started = number("started");
    summary.seconds = map.value("seconds").toDouble();
    summary.code = map.value("code").toString();
    summary.text = map.value("text").toString();
    summary.dryRun = map.value("dryRun").toBool();
    summary.done = {number("itemsDone"), number("bytesDone")};
    summary.skipped = {number("itemsSkipped"), number("bytesSkipped")};
    summary.failed = {number("itemsFailed"), number("bytesFailed")};
    summary.failures = itemsOf(map.value("failed"), false);
    summary.changes = itemsOf(map.value("changes"), true);
    summary.groups = groupsOf(map.value("groups"));
    summary.leftOver = map.value("leftOver").toStringList();
    summary.leftOverKnown = map.value("leftOverKnown", true).toBool();
    summary.lastSuccess = number("lastSuccess");
    return summary;
}

QJsonObject JobSummary::toJson() const
{
    return {{"job", static_cast<qint64>(job)},
            {"operation", operation},
            {"started", static_cast<qint64>(started)},
            {"seconds", seconds},
            {"code", code},
            {"text", text},
            {"dryRun", dryRun},
            {"done", toObject(done)},
            {"skipped", toObject(skipped)},
            {"failed", toObject(failed)},
            {"failures", toArray(failures, "reason")},
            {"changes", toArray(changes, "action")},
            {"groups", toArray(groups)},
            {"leftOver", QJsonArray::fromStringList(leftOver)},
            {"leftOverKnown", leftOverKnown}};
}
