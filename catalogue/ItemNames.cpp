#include "catalogue/ItemNames.h"

#include <QDir>
#include <QFile>
#include <QStringList>

#include <algorithm>

namespace ItemNames {

QString lastComponent(const QString &path)
{
    const QStringList parts = path.split('/', Qt::SkipEmptyParts);
    return parts.isEmpty() ? QString() : parts.last();
}

bool isModuleName(const QString &name)
{
    static const QString forbidden = "/\t\n\r:;";
    for (const QChar character : name) {
        if (forbidden.contains(character) || character.isNull()) {
            return false;
        }
    }
    return !name.isEmpty() && !name.startsWith('.') && !name.startsWith('-');
}

QString ownPrefix()
{
    return ".saverestore-";
}

bool isOwn(const QString &path)
{
    const QStringList parts = path.split('/');
    return std::any_of(parts.cbegin(), parts.cend(),
                       [](const QString &part) { return part.startsWith(ownPrefix()); });
}

QString normalizedItemPath(const QString &path)
{
    if (path.startsWith('/') || path.contains('\t') || path.contains('\n') || path.contains('\r') ||
        path.contains(QChar(0))) {
        return {};
    }
    QStringList parts = path.split('/', Qt::SkipEmptyParts);
    parts.removeAll(".");
    return parts.contains("..") || isOwn(path) ? QString() : parts.join('/');
}

bool fitsLine(const QByteArray &name)
{
    const bool breaksLine = name.contains('\t') || name.contains('\n') || name.contains('\r');
    return !breaksLine && QFile::encodeName(QFile::decodeName(name)) == name;
}

bool leadsOut(const QByteArray &target, const QString &parent, const QString &directory)
{
    const QString reached = QDir::cleanPath(QDir(parent).filePath(QFile::decodeName(target)));
    return reached != directory && !reached.startsWith(directory + "/");
}

QString flattened(const QString &path)
{
    return QString(path).replace("/", "++");
}

QString escaped(const QString &path)
{
    return flattened(QString(path).replace("%", "%25").replace("+", "%2B"));
}

QString modulesListName()
{
    return "modules-list.sav";
}

QString formatName()
{
    return ownPrefix() + "format";
}

bool canBeEntry(const QString &name)
{
    return !isOwn(name) || name == formatName();
}

QString versionFileName(const QString &module)
{
    return module + ".version";
}

QString checksumFileName(const QString &module)
{
    return module + ".cksum";
}

QString attributesFileName(const QString &module)
{
    return module + ".attributes";
}

QString migrationProgramName(const QString &module)
{
    return module + "Migration";
}

} // namespace ItemNames
