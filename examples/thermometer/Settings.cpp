#include "examples/thermometer/Settings.h"

#include <QFile>
#include <QSaveFile>

Settings Settings::read(const QString &path)
{
    constexpr qint64 most = 65536;
    Settings settings;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return settings;
    }
    const QStringList lines = QString::fromUtf8(file.read(most)).split('\n');
    for (const QString &line : lines) {
        const QString value = line.section('=', 1);
        if (line.startsWith("unit=")) {
            settings.unit = value;
        } else if (line.startsWith("sensor=")) {
            settings.sensor = value.toInt();
        }
    }
    return settings;
}

bool Settings::write(const QString &path) const
{
    QSaveFile file(path);
    return file.open(QIODevice::WriteOnly) &&
           file.write(QString("unit=%1\nsensor=%2\n").arg(unit, QString::number(sensor)).toUtf8()) > 0 &&
           file.commit();
}
