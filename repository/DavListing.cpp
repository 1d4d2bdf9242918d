#include "repository/DavListing.h"

namespace {

constexpr qint64 portionSize = qint64{64} * 1024;
constexpr qint64 longestToken = qint64{1024} * 1024;
constexpr int deepest = 32;
constexpr int ofResponses = 2;
constexpr qsizetype longestText = 8192;
constexpr qsizetype mostOfNames = qsizetype{32} * 1024 * 1024;

} // namespace

/// The last component of its path, as it is without escapes; empty for a collection.
QString DavListing::Response::name() const
{
    const QByteArray path = href.split('?').constFirst();
    return isCollection
               ? QString()
               : QString::fromUtf8(QByteArray::fromPercentEncoding(path.mid(path.lastIndexOf('/') + 1)));
}

DavListing::DavListing(const QString &path, qsizetype most) : file(path), most(most)
{
    state = file.open(QIODevice::ReadOnly) ? State::More : State::Refused;
}

DavListing::State DavListing::advance()
{
    if (state != State::More) {
        return state;
    }
    const QByteArray portion = file.read(portionSize);
    withoutToken += portion.size();
    xml.addData(portion);
    bool taken = true;
    while (taken && !ended && xml.readNext() != QXmlStreamReader::Invalid) {
        withoutToken = 0;
        taken = takeToken();
    }
    const bool broken = xml.hasError() && xml.error() != QXmlStreamReader::PrematureEndOfDocumentError;
    if (!taken || broken || withoutToken > longestToken || (portion.isEmpty() && !ended)) {
        state = State::Refused;
    } else if (ended) {
        state = State::Done;
    }
    return state;
}

/// False when the answer is refused for it, here and below.
bool DavListing::takeToken()
{
    switch (xml.tokenType()) {
    case QXmlStreamReader::DTD:
    case QXmlStreamReader::EntityReference:
        return false;
    case QXmlStreamReader::StartElement:
        return beginElement();
    case QXmlStreamReader::Characters:
        text += xml.text();
        return text.size() <= longestText;
    case QXmlStreamReader::EndElement:
        return endElement();
    default:
        return true;
    }
}

bool DavListing::beginElement()
{
    ++depth;
    text.clear();
    if (depth == ofResponses) {
        response = {};
    }
    response.isCollection = response.isCollection || (xml.name() == QLatin1String("collection") &&
                                                      xml.namespaceUri() == QLatin1String("DAV:"));
    return depth > 1 ? depth <= deepest : xml.name() == QLatin1String("multistatus");
}

bool DavListing::endElement()
{
    const bool isDav = xml.namespaceUri() == QLatin1String("DAV:");
    if (isDav && xml.name() == QLatin1String("href") && response.href.isEmpty()) {
        response.href = text.toUtf8();
    } else if (isDav && xml.name() == QLatin1String("getcontentlength")) {
        bool valid = false;
        const qint64 size = text.toLongLong(&valid);
        response.size = valid && size >= 0 ? size : response.size;
    } else if (depth == ofResponses && xml.name() == QLatin1String("response")) {
        if (const QString name = response.name(); !name.isEmpty()) {
            namesSize += name.size();
            found.insert(name, response.size);
        }
    }
    ended = --depth == 0; // what follows is of no meaning
    text.clear();
    return found.size() <= most && namesSize <= mostOfNames;
}
