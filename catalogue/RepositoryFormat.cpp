#include "catalogue/RepositoryFormat.h"

#include <QFile>

QByteArray formatText()
{
    return QByteArray::number(repositoryFormat) + "\n";
}

bool isKnownFormat(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return false;
    }
    const QByteArray text = file.read(largestFormatFile);
    bool isNumber = false;
    const int version = text.trimmed().toInt(&isNumber);
    const bool known = isNumber && version >= 1 && version <= repositoryFormat;
    return file.error() == QFile::NoError && (text.isEmpty() || known);
}
