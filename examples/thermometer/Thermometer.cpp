#include "examples/thermometer/Thermometer.h"

#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"

#include <QDateTime>
#include <QDir>

#include <cmath>

using namespace std::chrono_literals;

namespace {

constexpr auto measurePeriod = 50ms;
constexpr int measuresBetweenStores = 40;

} // namespace

Thermometer::Thermometer() : VYXModule("Thermometer"), store(dataPath("readings.data")) {}

bool Thermometer::Init()
{
    registerDBusCapability();
    if (!QDir().mkpath(dataPath("exports"))) {
        return false;
    }
    if (!QFile::exists(dataPath("settings.conf"))) {
        settings.write(dataPath("settings.conf"));
    }
    settings = Settings::read(dataPath("settings.conf"));
    store.open(); // so that it is there when the first save looks
    return true;
}

bool Thermometer::Run()
{
    subscribeEvent("restore_finished", this, [this](const VYXEvent &event) {
        if (event.getArgument("modules").toString().split(':').contains(getModuleName())) {
            settings.unit = Settings::read(dataPath("settings.conf")).unit;
        }
    });
    connect(&timer, &QTimer::timeout, this, &Thermometer::measure);
    timer.start(measurePeriod);
    return true;
}

bool Thermometer::Stop()
{
    return store.store();
}

void Thermometer::preSaveForSaveRestore()
{
    store.store();
    store.close();
}

bool Thermometer::restoreDataToDefault()
{
    const int sensorInUse = settings.sensor;
    store.forgetWaiting();
    settings = Settings();
    if (!settings.write(dataPath("settings.conf"))) {
        logError("The settings cannot be written");
    }
    // Whoever has changed what is looked at only at the start needs a reboot.
    const bool needReboot = settings.sensor != sensorInUse;
    settings.sensor = sensorInUse;
    return needReboot;
}

bool Thermometer::restoreDataToFactory()
{
    // Nothing is measured any more: every module is ended next.
    timer.stop();
    store.close();
    QDir(dataPath("exports")).removeRecursively();
    QDir().mkpath(dataPath("exports"));
    return restoreDataToDefault();
}

QString Thermometer::dataPath(const QString &item) const
{
    return DevicePaths::moduleData(getModuleName()) + "/" + item;
}

void Thermometer::measure()
{
    const QDateTime now = QDateTime::currentDateTimeUtc();
    const double phase = static_cast<double>(now.toMSecsSinceEpoch()) / 1e4;
    store.add({now.toSecsSinceEpoch(), 21.5 + 4.0 * std::sin(phase) + settings.sensor});
    if (++taken % measuresBetweenStores == 0) {
        store.store();
    }
}
