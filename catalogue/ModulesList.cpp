#include "catalogue/ModulesList.h"

#include "catalogue/ItemNames.h"

#include <QFile>
#include <QSet>

ModulesList parseModulesList(const QByteArray &text)
{
    ModulesList list;
    QSet<QString> known;
    qsizetype begin = 0;
    while (begin < text.size()) {
        const qsizetype end = text.indexOf('\n', begin);
        const QString name = QString::fromUtf8(text.mid(begin, end < 0 ? -1 : end - begin)).trimmed();
        if (name.isEmpty()) {
            break;
        }
        if (!known.contains(name)) {
            (ItemNames::isModuleName(name) ? list.modules : list.refused) << name;
            known << name;
        }
        if (known.size() > mostModules) {
            return {{}, {}, QString("it has more than %1 names").arg(mostModules)};
        }
        begin = end < 0 ? text.size() : end + 1;
    }
    return list;
}

ModulesList readModulesList(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return {{}, {}, file.errorString()};
    }
    const QByteArray text = file.read(largestModulesList + 1);
    if (file.error() != QFile::NoError) {
        return {{}, {}, file.errorString()};
    }
    if (text.size() > largestModulesList) {
        return {{}, {}, QString("it has more than %1 bytes").arg(largestModulesList)};
    }
    return parseModulesList(text);
}
