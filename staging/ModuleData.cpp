#include "staging/ModuleData.h"

#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"

#include <QFile>

ModuleData::ModuleData(const QString &module)
    : name(module), directory(DevicePaths::moduleData(module)), data(directory)
{
}

Beneath::Opened ModuleData::openRegular(const QByteArray &path) const
{
    Beneath::Opened file = data.openRegular(path);
    warnIfOutside(path, file.state);
    return file;
}

Beneath::Opened ModuleData::openRegular(const QString &path) const
{
    return openRegular(QFile::encodeName(path));
}

Beneath::Opened ModuleData::openDirectory(const QString &path) const
{
    Beneath::Opened opened = data.openDirectory(QFile::encodeName(path));
    warnIfOutside(QFile::encodeName(path), opened.state);
    return opened;
}

void ModuleData::warnIfOutside(const QByteArray &path, Beneath::State state) const
{
    if (state != Beneath::State::LeadsOut) {
        return;
    }
    const QString shown = QFile::decodeName(path);
    if (data.rootState() == Beneath::State::LeadsOut) {
        logWarning("'%1' of module '%2' is left out: the module's data directory '%3' is a link", shown, name,
                   directory);
    } else {
        logWarning("'%1' of module '%2' is left out: it is a link that leads out of the module's data", shown,
                   name);
    }
}
