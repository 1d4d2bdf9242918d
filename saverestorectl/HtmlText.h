#pragma once

#include <QList>
#include <QString>
#include <QStringList>

/// Pieces of HTML. Texts are escaped; what begins with "html" is HTML already.
namespace HtmlText {

QString escaped(const QString &text);
QString element(const char *name, const char *cssClass, const QString &html);
/// A table; cells are HTML.
QString table(const QStringList &headings, const QList<QStringList> &htmlRows);
/// Something with a heading that is folded when it has many rows.
QString folded(const QString &heading, qsizetype rows, const QString &html);

} // namespace HtmlText
