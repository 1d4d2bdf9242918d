#include "repository/DavListing.h"

#include <QFile>
#include <QXmlStreamReader>

namespace {

const QLatin1String davNamespace("DAV:");

struct DavEntry
{
    QByteArray href;
    qint64 size = -1;
    bool isCollection = false;

    /// The last component of its path, as it is without escapes; empty for a collection.
    QString name() const
    {
        const QByteArray path = href.split('?').constFirst();
        return isCollection
                   ? QString()
                   : QString::fromUtf8(QByteArray::fromPercentEncoding(path.mid(path.lastIndexOf('/') + 1)));
    }
};

DavEntry readEntry(QXmlStreamReader &xml)
{
    DavEntry entry;
    for (int depth = 1; depth > 0 && !xml.atEnd();) {
        xml.readNext();
        const bool isDav = xml.namespaceUri() == davNamespace;
        depth += xml.isStartElement() ? 1 : xml.isEndElement() ? -1 : 0;
        if (!xml.isStartElement() || !isDav) {
            continue;
        }
        if (xml.name() == QLatin1String("collection")) {
            entry.isCollection = true;
        } else if (xml.name() == QLatin1String("href") && entry.href.isEmpty()) {
            entry.href = xml.readElementText().toUtf8();
            --depth;
        } else if (xml.name() == QLatin1String("getcontentlength")) {
            bool valid = false;
            const qint64 size = xml.readElementText().toLongLong(&valid);
            entry.size = valid && size >= 0 ? size : -1;
            --depth;
        }
    }
    return entry;
}

} // namespace

std::optional<QMap<QString, qint64>> readDavListing(const QString &path, qsizetype most)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return std::nullopt;
    }
    QXmlStreamReader xml(&file);
    QMap<QString, qint64> entries;
    if (!xml.readNextStartElement() || xml.name() != QLatin1String("multistatus")) {
        return std::nullopt;
    }
    while (xml.readNextStartElement()) {
        if (xml.name() != QLatin1String("response")) {
            xml.skipCurrentElement();
            continue;
        }
        const DavEntry entry = readEntry(xml);
        if (const QString name = entry.name(); !name.isEmpty()) {
            entries.insert(name, entry.size);
        }
        if (entries.size() > most) {
            return std::nullopt;
        }
    }
    return xml.hasError() ? std::nullopt : std::optional(entries);
}
