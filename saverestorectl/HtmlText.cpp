#include "saverestorectl/HtmlText.h"

#include "saverestorectl/Text.h"

namespace HtmlText {

QString escaped(const QString &text)
{
    return Text::printable(text).toHtmlEscaped();
}

QString element(const char *name, const char *cssClass, const QString &html)
{
    const QString attribute = *cssClass != '\0' ? QString(" class=\"%1\"").arg(cssClass) : QString();
    return QString("<%1%2>%3</%1>\n").arg(name, attribute, html);
}

QString table(const QStringList &headings, const QList<QStringList> &htmlRows)
{
    QString head;
    for (const QString &heading : headings) {
        head += "<th scope=\"col\">" + escaped(heading) + "</th>";
    }
    QString body;
    for (const QStringList &row : htmlRows) {
        body += "<tr><td>" + row.join("</td><td>") + "</td></tr>\n";
    }
    return "<div class=\"wide\"><table><thead><tr>" + head + "</tr></thead>\n<tbody>\n" + body +
           "</tbody></table></div>\n";
}

QString folded(const QString &heading, qsizetype rows, const QString &html)
{
    constexpr qsizetype most = 12;
    return QString("<details%1><summary>%2 <span class=\"count\">%3</span></summary>\n%4</details>\n")
        .arg(rows <= most ? " open" : "", escaped(heading), QString::number(rows), html);
}

} // namespace HtmlText
