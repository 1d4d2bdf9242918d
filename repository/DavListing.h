#pragma once

#include <QFile>
#include <QMap>
#include <QString>
#include <QXmlStreamReader>

/// Reads a server's answer to a PROPFIND of depth 1 (RFC 4918) from a file, portion by portion. Memory is
/// bounded, whatever the answer says.
class DavListing
{
public:
    enum class State {
        More,
        Done,
        Refused, ///< it is no such answer, or goes beyond a bound
    };

    /// At most that many entries.
    DavListing(const QString &path, qsizetype most);

    /// Read the next portion; after the last one the state stays.
    State advance();

    /// The entries of the collection and their sizes in bytes, -1 when these are not told. Collections are no
    /// entries.
    const QMap<QString, qint64> &entries() const { return found; }

private:
    struct Response
    {
        QByteArray href;
        qint64 size = -1;
        bool isCollection = false;

        QString name() const;
    };

    bool takeToken();
    bool beginElement();
    bool endElement();

    QFile file;
    const qsizetype most;
    QXmlStreamReader xml;
    qint64 withoutToken = 0; ///< bytes since the last token
    int depth = 0;
    bool ended = false;
    Response response;
    QString text; ///< of the present element
    qsizetype namesSize = 0;
    QMap<QString, qint64> found;
    State state = State::More;
};
