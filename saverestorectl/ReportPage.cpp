#include "saverestorectl/ReportPage.h"

#include "saverestorectl/HtmlText.h"
#include "saverestorectl/PageStyle.h"
#include "saverestorectl/SummaryText.h"
#include "saverestorectl/Text.h"
#include "saverestorectl/TimeLine.h"

#include <QDateTime>

#include <algorithm>

using namespace HtmlText;

namespace {

QString code(const QString &text)
{
    return "<code>" + escaped(text) + "</code>";
}

QString total(const char *title, const QString &value, const QString &detail)
{
    return QString("<div><dt>%1</dt><dd>%2<small>%3</small></dd></div>\n")
        .arg(title, escaped(value), escaped(detail));
}

/// The longest time for which a module did nothing.
double longestPause(const JobSummary &summary)
{
    double longest = 0;
    for (const JobSummary::Group &group : summary.groups) {
        if (group.steps.contains("paused") && group.steps.contains("resumed")) {
            longest = std::max(longest, group.steps["resumed"] - group.steps["paused"]);
        }
    }
    return longest;
}

QString totals(const ReportPage::Job &job)
{
    const JobSummary &summary = job.summary;
    const auto count = [](const char *title, const JobSummary::Count &counted) {
        return total(title, QString::number(counted.items), Text::bytes(counted.bytes));
    };
    QString html = total("took", Text::seconds(summary.seconds), Text::moment(summary.started)) +
                   count("items done", summary.done) + count("items skipped", summary.skipped) +
                   count("items failed", summary.failed);
    if (const double pause = longestPause(summary); pause > 0) {
        html += total("longest pause", Text::seconds(pause),
                      Text::count(quint64(summary.groups.size()), "group"));
    }
    if (job.repository) {
        html += total("digests in the repository", QString("%1 same").arg(job.repository->same),
                      QString("%1 changed").arg(job.repository->changed.size()));
    }
    return element("dl", "totals", html);
}

QString failures(const JobSummary &summary)
{
    if (summary.failures.isEmpty()) {
        return {};
    }
    QList<QStringList> rows;
    for (const JobSummary::Item &item : summary.failures) {
        rows << QStringList{escaped(item.module), escaped(item.item), escaped(item.what)};
    }
    return folded("Failed", rows.size(), table({"module", "item", "reason"}, rows));
}

QString changes(const JobSummary &summary)
{
    if (summary.changes.isEmpty()) {
        return {};
    }
    QList<QStringList> rows;
    for (const JobSummary::Item &item : summary.changes) {
        rows << QStringList{escaped(item.what), escaped(item.module), escaped(item.item),
                            Text::bytes(item.bytes)};
    }
    const char *const title = summary.dryRun ? "What would be done" : "What was done";
    return folded(title, rows.size(), table({"what", "module", "item", "size"}, rows));
}

QString digests(const std::optional<RepositoryChanges> &repository)
{
    constexpr qsizetype most = 1000;
    if (!repository || repository->changed.isEmpty()) {
        return {};
    }
    QList<QStringList> rows;
    for (const RepositoryChanges::Change &change : repository->changed.mid(0, most)) {
        const char *const what =
            change.before.isEmpty() ? "new" : (change.after.isEmpty() ? "gone" : "changed");
        rows << QStringList{what,
                            escaped(change.module),
                            escaped(change.item),
                            Text::bytes(change.size),
                            change.before.isEmpty() ? QString("–") : code(change.before),
                            change.after.isEmpty() ? QString("–") : code(change.after)};
    }
    return folded("Digests that changed in the repository", repository->changed.size(),
                  table({"digest", "module", "item", "size", "before", "after"}, rows));
}

QString leftOver(const JobSummary &summary)
{
    if (!summary.leftOverKnown) {
        return element("p", "faint", "What is left over is not known: the repository cannot be listed.");
    }
    QList<QStringList> rows;
    for (const QString &entry : summary.leftOver) {
        rows << QStringList{escaped(entry)};
    }
    return rows.isEmpty()
               ? QString()
               : folded("Left over: entries that nobody promises", rows.size(), table({"entry"}, rows));
}

QString section(const ReportPage::Job &job)
{
    const JobSummary &summary = job.summary;
    const char *const style =
        summary.succeeded() ? "code good" : (summary.code == "Partial" ? "code doubt" : "code bad");
    const QString title =
        QString("%1, job %2 ").arg(escaped(operationTitle(summary.operation)), QString::number(summary.job));
    QString html = element("h2", "", title + element("span", style, escaped(summary.code)));
    if (summary.dryRun) {
        html += element("p", "faint", "A trial: nothing was changed.");
    }
    if (!summary.text.isEmpty()) {
        html += element("p", summary.succeeded() ? "" : "bad", escaped(summary.text));
    }
    html += totals(job) + failures(summary) + timeLine(summary) + changes(summary) + digests(job.repository);
    return element("section", "", html + (summary.operation == "verify" ? leftOver(summary) : QString()));
}

} // namespace

QByteArray ReportPage::toHtml() const
{
    QString html = QString("<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
                           "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
                           "<title>Save and restore on %1</title>\n<style>%2</style>\n</head>\n<body>\n")
                       .arg(escaped(host), pageStyle());
    html += element("h1", "", "Save and restore on " + escaped(host));
    html += element("p", "faint",
                    QString("Repository %1. Service %2. Written %3.")
                        .arg(repository.isEmpty() ? QString("not chosen") : code(repository),
                             escaped(version), QDateTime::currentDateTime().toString("yyyy-MM-dd HH:mm:ss")));
    std::for_each(jobs.crbegin(), jobs.crend(), [&](const Job &job) { html += section(job); });
    return (html + "</body>\n</html>\n").toUtf8();
}
