#pragma once

#include "restorable/DescriptionFault.h"

#include <QDomDocument>
#include <QHash>
#include <QString>

#include <utility>

/// The tree of a restorable.xml, read in bounded memory, with the lines of its elements.
class DescriptionDocument
{
public:
    /// The root element; null when the file cannot be read, is too large or no XML, which `faults` then tell.
    QDomElement read(const QString &path, DescriptionFaults &faults);

    /// Where an element of the tree begins.
    int lineOf(const QDomElement &element) const;
    /// Where the first character of a text that is no space stands.
    static int lineOf(const QDomCharacterData &text);

private:
    QString findBrokenBound(const QByteArray &text, int &line);

    /// Where start tags begin whose end is in another line, by line and column of their end.
    QHash<std::pair<int, int>, int> longTags;
    QDomDocument document;
};
