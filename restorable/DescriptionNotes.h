#pragma once

#include "restorable/DescriptionDocument.h"

#include <QStringList>

/// What is noted of a description while it is read: faults with their lines, in the order in which they are
/// found.
class DescriptionNotes
{
public:
    using Kind = DescriptionFault::Kind;
    using Weight = DescriptionFault::Weight;

    /// The root element of the file, null with a fault.
    QDomElement open(const QString &path) { return document.read(path, faults); }
    int lineOf(const QDomElement &element) const { return document.lineOf(element); }

    void report(Weight weight, Kind kind, const QDomElement &element, const QString &text);
    void tolerate(Kind kind, const QDomElement &element, const QString &text);
    void tolerate(Kind kind, int line, const QString &text);

    /// An element that is not known where it is, or text between elements.
    void stray(const QDomNode &node);
    /// Attributes other than these.
    void attributes(const QDomElement &element, const QStringList &known);
    /// Elements in one whose text counts.
    void children(const QDomElement &element);
    /// A name or path of the element that begins or ends with a space.
    void outerSpace(const QDomElement &element, const QString &name);

    const DescriptionFaults &list() const { return faults; }

private:
    DescriptionDocument document;
    DescriptionFaults faults;
};
