#include "saverestorectl/SummaryText.h"

#include "saverestorectl/ExitStatus.h"
#include "saverestorectl/Output.h"
#include "saverestorectl/Text.h"

namespace {

constexpr qsizetype usuallyNamed = 20;

QString counted(const JobSummary::Count &count, const char *what)
{
    const QString size = count.bytes > 0 ? QString(" (%1)").arg(Text::bytes(count.bytes)) : QString();
    return QString("%1 %2%3").arg(QString::number(count.items), what, size);
}

void printItems(const QList<JobSummary::Item> &items, qsizetype most, Output &output)
{
    QList<QStringList> rows;
    for (const JobSummary::Item &item : items.mid(0, most)) {
        rows << QStringList{"  " + item.what, item.module,
                            item.bytes > 0 ? Text::bytes(item.bytes) : QString(), item.item};
    }
    output.table(rows);
    if (items.size() > most) {
        output.line(QString("  ... and %1 more, see --verbose").arg(items.size() - most));
    }
}

void printLeftOver(const JobSummary &summary, qsizetype most, Output &output)
{
    if (!summary.leftOverKnown) {
        output.line("  What is left over is not known: the repository cannot be listed");
    }
    for (const QString &entry : summary.leftOver.mid(0, most)) {
        output.line("  left over: " + entry);
    }
    if (summary.leftOver.size() > most) {
        output.line(QString("  ... and %1 more, see --verbose").arg(summary.leftOver.size() - most));
    }
}

} // namespace

QString operationTitle(const QString &operation)
{
    return operation.left(1).toUpper() + operation.mid(1);
}

QString summaryLine(const JobSummary &summary)
{
    QStringList parts = {counted(summary.done, "done")};
    parts << counted(summary.skipped, "skipped") << counted(summary.failed, "failed");
    parts << "in " + Text::seconds(summary.seconds);
    return parts.join(", ");
}

void printSummary(const JobSummary &summary, bool everyItem, Output &output)
{
    QJsonObject object = summary.toJson();
    object.insert("exit", ExitStatus::ofCode(summary.code));
    output.object("finished", object);
    const Span::Style style = summary.succeeded() ? Span::Style::Good : Span::Style::Bad;
    output.line({{operationTitle(summary.operation), Span::Style::Bold},
                 {summary.dryRun ? " (nothing was changed): " : ": "},
                 {summary.code, style},
                 {"; " + summaryLine(summary)}});
    if (!summary.text.isEmpty()) {
        output.line("  " + summary.text);
    }
    const qsizetype most = everyItem || summary.dryRun ? summary.changes.size() : usuallyNamed;
    printItems(summary.changes, most, output);
    for (const JobSummary::Item &item : summary.failures) {
        output.line({{"  failed", Span::Style::Bad},
                     {QString("  %1  %2: %3").arg(item.module, item.item, item.what)}});
    }
    if (summary.operation == "verify") {
        printLeftOver(summary, everyItem ? summary.leftOver.size() : usuallyNamed, output);
    }
}
