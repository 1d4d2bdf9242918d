#include "restorable/DescriptionNotes.h"

void DescriptionNotes::report(Weight weight, Kind kind, const QDomElement &element, const QString &text)
{
    faults.append({kind, weight, document.lineOf(element), text});
}

void DescriptionNotes::tolerate(Kind kind, const QDomElement &element, const QString &text)
{
    tolerate(kind, document.lineOf(element), text);
}

void DescriptionNotes::tolerate(Kind kind, int line, const QString &text)
{
    faults.append({kind, Weight::Tolerated, line, text});
}

void DescriptionNotes::stray(const QDomNode &node)
{
    constexpr int shown = 40;
    const QString parent = node.parentNode().nodeName();
    if (node.isElement()) {
        tolerate(Kind::UnknownElement, node.toElement(),
                 QString("Element '%1' is not known in '%2'").arg(node.nodeName(), parent));
    } else if (node.isText() || node.isCDATASection()) {
        const QDomCharacterData text = node.toCharacterData();
        tolerate(Kind::StrayText, DescriptionDocument::lineOf(text),
                 QString("Text '%1' stands in '%2'").arg(text.data().simplified().left(shown), parent));
    }
}

void DescriptionNotes::attributes(const QDomElement &element, const QStringList &known)
{
    const QDomNamedNodeMap map = element.attributes();
    for (int index = 0; index < map.count(); ++index) {
        const QString name = map.item(index).nodeName();
        if (!known.contains(name)) {
            tolerate(Kind::UnknownAttribute, element,
                     QString("Attribute '%1' is not known at '%2'").arg(name, element.tagName()));
        }
    }
}

void DescriptionNotes::children(const QDomElement &element)
{
    for (QDomElement child = element.firstChildElement(); !child.isNull();
         child = child.nextSiblingElement()) {
        stray(child);
    }
}

void DescriptionNotes::outerSpace(const QDomElement &element, const QString &name)
{
    if (name != name.trimmed()) {
        tolerate(Kind::OuterSpace, element, QString("'%1' begins or ends with a space").arg(name));
    }
}
