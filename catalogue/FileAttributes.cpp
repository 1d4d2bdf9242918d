#include "catalogue/FileAttributes.h"

#include <QFile>

namespace {

constexpr quint32 permissionBits = 0777;

struct Line
{
    QString key;
    FileAttributes attributes;
};

/// What is no UTF-8 would become longer when it is written again.
bool isName(const QByteArray &name)
{
    return name.size() <= longestOwnerName && QString::fromUtf8(name).toUtf8() == name;
}

std::optional<Line> parseLine(const QByteArray &text)
{
    const QByteArrayList fields = text.split('\t');
    if (fields.size() != 5) {
        return std::nullopt;
    }
    bool isMode = false;
    bool isTime = false;
    const quint32 mode = fields.at(1).toUInt(&isMode, 8);
    const qint64 modified = fields.at(4).toLongLong(&isTime);
    if (!isMode || !isTime || !isName(fields.at(2)) || !isName(fields.at(3)) || mode > permissionBits) {
        return std::nullopt;
    }
    return Line{QString::fromUtf8(fields.at(0)),
                {mode, QString::fromUtf8(fields.at(2)), QString::fromUtf8(fields.at(3)), modified}};
}

} // namespace

QByteArray attributesText(const AttributesByKey &attributes)
{
    QByteArray text;
    for (const auto &[key, of] : attributes.asKeyValueRange()) {
        const QStringList fields = {key, QString("%1").arg(of.mode, 4, 8, QChar('0')), of.owner, of.group,
                                    QString::number(of.modified)};
        text += fields.join('\t').toUtf8() + "\n";
    }
    return text;
}

AttributesByKey parseAttributes(const QByteArray &text, const QSet<QString> &keys)
{
    AttributesByKey attributes;
    for (qsizetype begin = 0; begin < text.size();) {
        const qsizetype found = text.indexOf('\n', begin);
        const qsizetype end = found < 0 ? text.size() : found;
        if (const auto line = parseLine(text.mid(begin, end - begin)); line && keys.contains(line->key)) {
            const auto known = attributes.constFind(line->key);
            const quint32 given = known == attributes.cend() ? permissionBits : known->mode;
            attributes[line->key] = line->attributes;
            attributes[line->key].mode &= given;
        }
        begin = end + 1;
    }
    return attributes;
}

std::optional<AttributesByKey> readAttributesFile(const QString &path, const ChecksumLines &lines)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || file.size() > largestAttributesFile) {
        return std::nullopt;
    }
    QSet<QString> keys;
    for (const ChecksumLine &line : lines) {
        keys << line.key();
    }
    const QByteArray text = file.readAll();
    return file.error() == QFile::NoError ? std::optional(parseAttributes(text, keys)) : std::nullopt;
}
