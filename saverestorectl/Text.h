#pragma once

#include <QString>

/// Texts for a person.
namespace Text {

/// With what could steer a terminal, or turn the direction of writing, shown as an escape: a name from
/// elsewhere stays on its line.
QString printable(const QString &text);
/// The same of JSON, where such a character can only stand in a string.
QByteArray printableJson(const QByteArray &json);

/// How many columns of a terminal the text takes.
int columns(const QString &text);
/// The text, cut off with "..." when it takes more columns.
QString shortened(const QString &text, int most);
/// Filled up with spaces.
QString padded(const QString &text, int width);

/// "1.2 MB".
QString bytes(quint64 count);
/// "0:05", "1:02:03".
QString duration(double seconds);
/// "4.2 ms", "0.12 s", "13.4 s", "5:04".
QString seconds(double seconds);
/// In local time; "never" for 0.
QString moment(quint64 secondsSinceEpoch);
/// "1 item", "2 items".
QString count(quint64 number, const char *what);

} // namespace Text
