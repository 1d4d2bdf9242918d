#include "restore/DownloadList.h"

#include <QMap>
#include <QStringList>

namespace {

const QMap<DownloadLine::Kind, QString> &kindNames()
{
    static const QMap<DownloadLine::Kind, QString> names = {{DownloadLine::File, "file"},
                                                            {DownloadLine::Directory, "directory"},
                                                            {DownloadLine::Database, "database"}};
    return names;
}

QString encoded(const QString &field)
{
    QString text;
    for (const QChar character : field) {
        const char16_t code = character.unicode();
        if (code <= u' ' || code == u'%' || code == 0x7f) {
            text += QString("%%1").arg(int(code), 2, 16, QChar('0')).toUpper();
        } else {
            text += character;
        }
    }
    return text;
}

QString decoded(const QString &field)
{
    return QString::fromUtf8(QByteArray::fromPercentEncoding(field.toUtf8()));
}

} // namespace

QString DownloadLine::text() const
{
    QStringList fields = {kindNames().value(kind), encoded(source)};
    if (kind != Directory) {
        fields << encoded(target);
    }
    fields << encoded(priority);
    return fields.join(' ') + "\n";
}

std::optional<DownloadLine> DownloadLine::parse(const QString &line)
{
    const QStringList fields = line.split(' ');
    DownloadLine parsed;
    const QList<Kind> kinds = kindNames().keys(fields.first());
    if (kinds.isEmpty() || fields.size() != (kinds.first() == Directory ? 3 : 4)) {
        return std::nullopt;
    }
    parsed.kind = kinds.first();
    parsed.source = decoded(fields.at(1));
    if (parsed.kind != Directory) {
        parsed.target = decoded(fields.at(2));
    }
    parsed.priority = decoded(fields.last());
    return parsed;
}
