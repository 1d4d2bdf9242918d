#include "saverestorectl/LookCommand.h"

#include "saverestorectl/RepositoryItem.h"
#include "saverestorectl/SummaryText.h"
#include "saverestorectl/Text.h"

#include <QTimer>

void LookCommand::begin()
{
    if (line.command == "list") {
        ask("List", [this](const QVariant &answer) { showList(answer); });
    } else if (line.command == "preview") {
        ask("Preview", [this](const QVariant &answer) { showPreview(answer); });
    } else if (line.command == "cancel") {
        cancel();
    } else if (line.command == "settings") {
        service.callModule("printSettings", [this](const ServiceConnection::Answer &answer) {
            if (answer.failure) {
                fail(*answer.failure);
                return;
            }
            showSettings(answer.values.value(0).toString());
            leave(ExitStatus::Success);
        });
    } else {
        showStatus();
        QTimer::singleShot(0, this, [this] { leave(ExitStatus::Success); });
    }
}

void LookCommand::ask(const QString &method, const std::function<void(const QVariant &)> &show)
{
    service.call(method, {}, [this, show](const ServiceConnection::Answer &answer) {
        if (answer.failure) {
            fail(*answer.failure);
            return;
        }
        show(answer.values.value(0));
        leave(ExitStatus::Success);
    });
}

void LookCommand::showStatus()
{
    QJsonObject object = {
        {"service", service.version()},       {"operation", service.operation()},
        {"job", qint64(service.job())},       {"phase", service.phase()},
        {"progress", service.progress()},     {"module", service.module()},
        {"repository", service.repository()}, {"nextSave", static_cast<qint64>(service.nextSave())}};
    for (const char *operation : {"Save", "Restore", "Verify"}) {
        const auto last = service.last(operation);
        QJsonObject summary = last ? last->toJson() : QJsonObject();
        summary.insert("lastSuccess", last ? static_cast<qint64>(last->lastSuccess) : 0);
        object.insert(QString("last") + operation, last ? QJsonValue(summary) : QJsonValue());
    }
    output.object("status", object);
    QStringList running = {service.operation(), service.phase(), service.module()};
    running.removeAll(QString());
    const QString far = QString(", %1 %").arg(static_cast<int>(service.progress() * 100));
    const QString repository = service.repository();
    const quint64 next = service.nextSave();
    output.line("Service       " + service.version());
    output.line("Running       " + (service.isIdle() ? QString("nothing") : running.join(", ") + far));
    output.line("Repository    " + (repository.isEmpty() ? QString("none") : repository));
    output.line("Next save     " + (next == 0 ? QString("none is scheduled") : Text::moment(next)));
    for (const char *operation : {"Save", "Restore", "Verify"}) {
        showLast(operation);
    }
}

void LookCommand::showLast(const QString &operation)
{
    const QString name = Text::padded("Last " + operation.toLower(), 14);
    const auto last = service.last(operation);
    if (!last) {
        output.line(name + "never");
        return;
    }
    output.line({{name + Text::moment(last->started) + (last->dryRun ? " (nothing was changed) " : " ")},
                 {last->code, last->succeeded() ? Span::Style::Good : Span::Style::Bad},
                 {"; " + summaryLine(*last)}});
    if (!last->succeeded()) {
        output.line("              the last success: " + Text::moment(last->lastSuccess));
    }
}

void LookCommand::showList(const QVariant &answer)
{
    QList<QStringList> rows;
    QStringList modules;
    for (const RepositoryItem &item : RepositoryItem::list(answer)) {
        if (line.namesOnly) {
            if (!modules.contains(item.module)) {
                modules << item.module;
            }
            continue;
        }
        output.object("item", item.toJson());
        rows << QStringList{item.module, item.kind, item.priority, item.size ? Text::bytes(*item.size) : "?",
                            item.digest, item.item};
    }
    output.table(rows);
    for (const QString &module : std::as_const(modules)) {
        output.object("module", {{"module", module}});
        output.line(module);
    }
}

void LookCommand::showPreview(const QVariant &answer)
{
    QList<QStringList> rows;
    for (const PreviewedItem &item : PreviewedItem::list(answer)) {
        output.object(
            "preview",
            {{"module", item.module}, {"item", item.item}, {"action", item.action}, {"why", item.why}});
        rows << QStringList{item.action, item.module,
                            item.why.isEmpty() ? item.item : item.item + " (" + item.why + ")"};
    }
    output.table(rows);
}

void LookCommand::showSettings(const QString &text)
{
    QJsonObject values;
    for (const QString &each : text.split('\n', Qt::SkipEmptyParts)) {
        output.line(each);
        values.insert(each.section(": ", 0, 0), each.section(": ", 1));
    }
    output.object("settings", {{"values", values}});
}

void LookCommand::cancel()
{
    const bool idle = service.isIdle();
    ask("Cancel", [this, idle](const QVariant &) {
        output.object("cancelling", {{"job", static_cast<qint64>(service.job())}});
        output.line(idle ? "Nothing runs" : "Cancelled: " + service.operation());
    });
}
