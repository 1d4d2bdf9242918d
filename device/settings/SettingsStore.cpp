#include "device/settings/SettingsStore.h"

#include "device/common/PlainName.h"

#include <QFile>
#include <QSaveFile>

#include <utility>

SettingsStore::SettingsStore(QString path) : path(std::move(path)) {}

bool SettingsStore::load()
{
    settings.clear();
    QFile file(path);
    if (!file.exists()) {
        return true;
    }
    if (!file.open(QIODevice::ReadOnly)) {
        return false;
    }
    const QStringList lines = QString::fromUtf8(file.readAll()).split('\n');
    for (const QString &line : lines) {
        const qsizetype separator = line.indexOf('=');
        if (separator > 0 && isPlainName(line.left(separator))) {
            settings.insert(line.left(separator), line.mid(separator + 1));
        }
    }
    return true;
}

std::optional<QString> SettingsStore::value(const QString &name) const
{
    const auto found = settings.constFind(name);
    return found == settings.cend() ? std::nullopt : std::optional<QString>(*found);
}

bool SettingsStore::isStorable(const QString &name, const QString &value)
{
    return isPlainName(name) && !value.contains('\n') && !value.contains('\r');
}

bool SettingsStore::setValue(const QString &name, const QString &value)
{
    QMap<QString, QString> changed = settings;
    changed.insert(name, value);
    if (!isStorable(name, value) || !write(changed)) {
        return false;
    }
    settings = changed;
    return true;
}

bool SettingsStore::write(const QMap<QString, QString> &content) const
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        return false;
    }
    for (auto setting = content.cbegin(); setting != content.cend(); ++setting) {
        file.write((setting.key() + "=" + setting.value() + "\n").toUtf8());
    }
    return file.commit();
}
