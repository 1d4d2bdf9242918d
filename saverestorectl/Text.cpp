#include "saverestorectl/Text.h"

#include <QDateTime>
#include <QLocale>
#include <QTextBoundaryFinder>

#include <algorithm>
#include <cmath>
#include <cwchar>

namespace Text {

namespace {

constexpr int minute = 60;
constexpr int hour = 3600;

bool steers(char32_t character)
{
    return character < 0x20 || (character >= 0x7F && character < 0xA0) || character == 0x61C ||
           (character >= 0x200B && character <= 0x200F) || (character >= 0x2028 && character <= 0x202E) ||
           (character >= 0x2060 && character <= 0x206F) || character == 0xFEFF ||
           (character >= 0xD800 && character < 0xE000) || character >= 0xE0000;
}

QString escape(char32_t character)
{
    if (character == '\n') {
        return "\\n";
    }
    if (character == '\t') {
        return "\\t";
    }
    const bool isShort = character < 0x100;
    return (isShort ? "\\x" : "\\u") + QString::number(character, 16).rightJustified(isShort ? 2 : 4, '0');
}

/// Without the "C" locale's refusal of everything that is no ASCII.
int columnsOf(char32_t character)
{
    const int width = wcwidth(static_cast<wchar_t>(character));
    return width < 0 ? 1 : width;
}

} // namespace

QString printable(const QString &text)
{
    QString shown;
    for (const char32_t character : text.toUcs4()) {
        shown += steers(character) ? escape(character) : QString::fromUcs4(&character, 1);
    }
    return shown;
}

QByteArray printableJson(const QByteArray &json)
{
    QString shown;
    for (const QChar character : QString::fromUtf8(json)) {
        const bool surrogate = character.isSurrogate();
        shown += !surrogate && steers(character.unicode())
                     ? "\\u" + QString::number(character.unicode(), 16).rightJustified(4, '0')
                     : QString(character);
    }
    return shown.toUtf8();
}

int columns(const QString &text)
{
    int width = 0;
    for (const char32_t character : text.toUcs4()) {
        width += columnsOf(character);
    }
    return width;
}

QString shortened(const QString &text, int most)
{
    constexpr int dots = 3;
    if (columns(text) <= most) {
        return text;
    }
    QString kept;
    int width = most > dots ? dots : 0;
    QTextBoundaryFinder letters(QTextBoundaryFinder::Grapheme, text);
    for (qsizetype begin = 0, end = letters.toNextBoundary(); end > 0;
         begin = end, end = letters.toNextBoundary()) {
        const QString letter = text.mid(begin, end - begin);
        width += columns(letter);
        if (width > most) {
            break;
        }
        kept += letter;
    }
    return kept + (most > dots ? "..." : "");
}

QString padded(const QString &text, int width)
{
    return text + QString(std::max(0, width - columns(text)), ' ');
}

QString bytes(quint64 count)
{
    return QLocale::c().formattedDataSize(static_cast<qint64>(count), count < 1000 ? 0 : 1,
                                          QLocale::DataSizeSIFormat);
}

QString duration(double seconds)
{
    const auto whole = static_cast<qint64>(std::llround(std::clamp(seconds, 0.0, 1e9)));
    const QString rest = QString::number(whole % minute).rightJustified(2, '0');
    if (whole < hour) {
        return QString("%1:%2").arg(QString::number(whole / minute), rest);
    }
    const QString minutes = QString::number(whole % hour / minute).rightJustified(2, '0');
    return QString("%1:%2:%3").arg(QString::number(whole / hour), minutes, rest);
}

QString seconds(double seconds)
{
    constexpr double fine = 10;
    constexpr double brief = 0.1;
    if (seconds >= minute) {
        return duration(seconds);
    }
    return seconds > 0 && seconds < brief ? QString::number(seconds * 1000, 'f', 1) + " ms"
                                          : QString::number(seconds, 'f', seconds < fine ? 2 : 1) + " s";
}

QString moment(quint64 secondsSinceEpoch)
{
    return secondsSinceEpoch == 0 ? QString("never")
                                  : QDateTime::fromSecsSinceEpoch(static_cast<qint64>(secondsSinceEpoch))
                                        .toString("yyyy-MM-dd HH:mm:ss");
}

QString count(quint64 number, const char *what)
{
    return QString("%1 %2%3").arg(QString::number(number), what, number == 1 ? "" : "s");
}

} // namespace Text
