#pragma once

#include <QString>

/// What the user has set, in the file settings.conf: lines of "name=value".
struct Settings
{
    QString unit = "celsius";
    int sensor = 0; ///< looked at when the process starts, and then no more

    /// The settings of the file; the default of each one that it lacks.
    static Settings read(const QString &path);

    /// Write the file whole or not at all; false when that failed.
    bool write(const QString &path) const;
};
