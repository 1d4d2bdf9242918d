#pragma once

#include "examples/thermometer/ReadingStore.h"
#include "examples/thermometer/Settings.h"
#include "platform/core/VYXModule.h"

#include <QTimer>

/// Measures the temperature twenty times a second.
///
/// It has one database, one file of settings and one directory of exports. It closes the database before it
/// pauses for a save or a restore, reads its settings again after a restore, and resets what no SQL command
/// of its restorable.xml reaches.
class Thermometer : public VYXModule
{
    Q_OBJECT

public:
    Thermometer();

    bool Init() override;
    bool Run() override;
    bool Stop() override;

    void preSaveForSaveRestore() override;
    bool restoreDataToDefault() override;
    bool restoreDataToFactory() override;

public Q_SLOTS:
    /// Readings that were taken since the process started, stored or not.
    int readingsTaken() const { return taken; }
    QString unit() const { return settings.unit; }

private:
    QString dataPath(const QString &item) const;
    void measure();

    ReadingStore store;
    Settings settings;
    QTimer timer;
    int taken = 0;
};
