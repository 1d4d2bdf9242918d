#include "restorable/DescriptionDocument.h"

#include <QFile>
#include <QXmlStreamReader>

#include <algorithm>

namespace {

constexpr qint64 largestDescription = qint64{1024} * 1024;
constexpr int mostElements = 5000;
constexpr int deepestElement = 20;

void refuse(DescriptionFaults &faults, DescriptionFault::Kind kind, int line, const QString &text)
{
    faults.append({kind, DescriptionFault::Weight::Error, line, text});
}

} // namespace

QDomElement DescriptionDocument::read(const QString &path, DescriptionFaults &faults)
{
    using Kind = DescriptionFault::Kind;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        refuse(faults, Kind::Unreadable, 0,
               QString("The description '%1' cannot be read: %2").arg(path, file.errorString()));
        return {};
    }
    const QByteArray text = file.read(largestDescription + 1);
    int line = 0;
    if (const QString bound = findBrokenBound(text, line); !bound.isEmpty()) {
        refuse(faults, Kind::TooLarge, line,
               QString("The description '%1' is refused: it has more than %2").arg(path, bound));
        return {};
    }
    QString error;
    if (!document.setContent(text, &error, &line)) {
        refuse(
            faults, Kind::NotWellFormed, line,
            QString("The description '%1' is broken in line %2: %3").arg(path, QString::number(line), error));
        return {};
    }
    return document.documentElement();
}

/// The bound that a description goes beyond; empty when there is none. Looked at before a tree is made of it.
QString DescriptionDocument::findBrokenBound(const QByteArray &text, int &line)
{
    if (text.size() > largestDescription) {
        return QString("%1 bytes").arg(largestDescription);
    }
    int elements = 0;
    int depth = 0;
    int begin = 1;
    for (QXmlStreamReader xml(text); !xml.atEnd(); xml.readNext()) {
        line = static_cast<int>(xml.lineNumber());
        if (xml.isStartElement() && begin != line) {
            longTags.insert({line, static_cast<int>(xml.columnNumber())}, begin);
        }
        begin = line;
        elements += xml.isStartElement() ? 1 : 0;
        depth += xml.isStartElement() ? 1 : (xml.isEndElement() ? -1 : 0);
        if (elements > mostElements) {
            return QString("%1 elements").arg(mostElements);
        }
        if (depth > deepestElement) {
            return QString("%1 levels").arg(deepestElement);
        }
    }
    return {};
}

int DescriptionDocument::lineOf(const QDomElement &element) const
{
    return longTags.value({element.lineNumber(), element.columnNumber()}, element.lineNumber());
}

int DescriptionDocument::lineOf(const QDomCharacterData &text)
{
    const QString data = text.data();
    const auto first =
        std::find_if(data.cbegin(), data.cend(), [](QChar character) { return !character.isSpace(); });
    return text.lineNumber() - static_cast<int>(std::count(first, data.cend(), QChar('\n')));
}
