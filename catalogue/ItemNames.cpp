#include "catalogue/ItemNames.h"

#include <QHash>

#include <algorithm>

namespace {

const QString separator = "++";

} // namespace

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

QString flattened(const QString &path)
{
    return QString(path).replace("/", separator);
}

bool isAmbiguous(const QString &path)
{
    return path.contains(separator);
}

QString modulesListName()
{
    return "modules-list.sav";
}

QString versionFileName(const QString &module)
{
    return module + ".version";
}

QString checksumFileName(const QString &module)
{
    return module + ".cksum";
}

QString migrationProgramName(const QString &module)
{
    return module + "Migration";
}

PlainFileEntries::PlainFileEntries(const QMap<QString, QStringList> &keysByModule,
                                   const QSet<QString> &reserved)
{
    bool changed = true;
    while (changed) {
        changed = false;
        QHash<QString, QSet<Item>> claims;
        for (auto module = keysByModule.cbegin(); module != keysByModule.cend(); ++module) {
            for (const QString &key : module.value()) {
                claims[entry(module.key(), key).text()].insert({module.key(), key});
            }
        }
        for (auto claim = claims.cbegin(); claim != claims.cend(); ++claim) {
            if (claim.value().size() < 2 && !reserved.contains(claim.key())) {
                continue;
            }
            const qsizetype before = qualified.size();
            qualified.unite(claim.value());
            changed = changed || qualified.size() != before;
        }
    }
}

EntryName PlainFileEntries::entry(const QString &module, const QString &key) const
{
    const QString directory = key.contains('/') ? flattened(key.section('/', 0, -2)) : QString();
    const QString name = key.section('/', -1);
    if (!qualified.contains({module, key})) {
        return {directory, name};
    }
    return {directory.isEmpty() ? module : module + separator + directory, name};
}

} // namespace ItemNames
