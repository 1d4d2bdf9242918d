#include "saverestorectl/TimeLine.h"

#include "saverestorectl/HtmlText.h"
#include "saverestorectl/Text.h"

#include <algorithm>
#include <array>
#include <optional>

using namespace HtmlText;

namespace {

/// What lies between two steps.
struct Span
{
    const char *from;
    const char *to;
    const char *cssClass;
    const char *meaning;
};

constexpr std::array spans = {
    Span{"asked", "paused", "wait", "asked, not yet paused"},
    Span{"paused", "copied", "copy", "paused, databases are copied"},
    Span{"copied", "resumed", "hold", "copied, not yet resumed"},
    Span{"resumed", "staged", "stage", "resumed, data are staged"},
    Span{"staged", "sent", "send", "staged, waits and is sent"},
};

std::optional<double> timeOf(const JobSummary::Group &group, const QString &step)
{
    const auto found = group.steps.constFind(step);
    return found == group.steps.cend() ? std::nullopt : std::optional(std::max(0.0, *found));
}

/// A step that did not happen begins where the one before has ended.
std::optional<double> beginOf(const JobSummary::Group &group, const QString &step)
{
    for (qsizetype index = JobSummary::stepNames().indexOf(step); index >= 0; --index) {
        if (const auto time = timeOf(group, JobSummary::stepNames().at(index))) {
            return time;
        }
    }
    return {};
}

double whole(const JobSummary &summary)
{
    constexpr double least = 0.001;
    double end = std::max(summary.seconds, least);
    for (const JobSummary::Group &group : summary.groups) {
        for (const double time : group.steps) {
            end = std::max(end, time);
        }
    }
    return end;
}

QString percent(double part)
{
    return QString::number(part * 100, 'f', 3) + "%";
}

QString bar(const JobSummary::Group &group, double end)
{
    constexpr double thinnest = 0.002;
    QString rectangles = R"(<rect class="ground" x="0" y="8" width="100%" height="2"/>)";
    for (const Span &span : spans) {
        const auto from = beginOf(group, span.from);
        const auto to = timeOf(group, span.to);
        if (from && to && *to >= *from) {
            rectangles += QString("<rect class=\"%1\" x=\"%2\" y=\"2\" width=\"%3\" height=\"14\"><title>%4: "
                                  "%5</title></rect>")
                              .arg(span.cssClass, percent(*from / end),
                                   percent(std::max((*to - *from) / end, thinnest)), span.meaning,
                                   Text::seconds(*to - *from));
        }
    }
    return QString(
               "<svg class=\"bar\" width=\"100%\" height=\"18\" role=\"img\" aria-label=\"%1\">%2</svg>\n")
        .arg(escaped(group.modules.join(", ")), rectangles);
}

QString axis(double end)
{
    constexpr int parts = 4;
    QString texts;
    for (int part = 0; part <= parts; ++part) {
        const char *const anchor = part == 0 ? "start" : (part == parts ? "end" : "middle");
        const double share = static_cast<double>(part) / parts;
        texts += QString("<line x1=\"%1\" x2=\"%1\" y1=\"0\" y2=\"5\"/><text x=\"%1\" y=\"18\" "
                         "text-anchor=\"%2\">%3</text>")
                     .arg(percent(share), anchor, escaped(Text::seconds(end * share)));
    }
    return "<div class=\"group\"><span></span><svg class=\"axis\" width=\"100%\" height=\"22\" "
           "aria-hidden=\"true\">" +
           texts + "</svg></div>\n";
}

QString legend()
{
    QString entries;
    for (const Span &span : spans) {
        entries += QString("<span><svg width=\"12\" height=\"12\"><rect class=\"%1\" width=\"12\" "
                           "height=\"12\"/></svg> %2</span> ")
                       .arg(span.cssClass, span.meaning);
    }
    return element("p", "legend", entries);
}

QString times(const JobSummary &summary)
{
    QList<QStringList> rows;
    for (const JobSummary::Group &group : summary.groups) {
        QStringList row = {escaped(group.modules.join(", "))};
        for (const QString &step : JobSummary::stepNames()) {
            const auto time = timeOf(group, step);
            row << (time ? QString::number(*time, 'f', 3) : QString("–"));
        }
        rows << row;
    }
    return table(QStringList("group") + JobSummary::stepNames(), rows);
}

} // namespace

QString timeLine(const JobSummary &summary)
{
    if (summary.groups.isEmpty()) {
        return {};
    }
    const double end = whole(summary);
    QString rows;
    for (const JobSummary::Group &group : summary.groups) {
        rows += "<div class=\"group\"><span>" + escaped(group.modules.join(", ")) + "</span>" +
                bar(group, end) + "</div>\n";
    }
    const qsizetype count = summary.groups.size();
    return element("h3", "", "Groups of modules that paused together") +
           folded("Time line", count, rows + axis(end) + legend()) +
           folded("Seconds since the begin", count, times(summary));
}
