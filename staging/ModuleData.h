#pragma once

#include "platform/Beneath.h"

#include <QString>

/// The data directory of one module, as a save reads it: nothing outside of it is ever opened.
class ModuleData
{
public:
    explicit ModuleData(const QString &module);

    QString module() const { return name; }
    QString pathOf(const QString &item) const { return directory + "/" + item; }

    /// A regular file, by the bytes of its path in the directory. A link that leads out is named by a
    /// warning, as with `openDirectory`.
    Beneath::Opened openRegular(const QByteArray &path) const;
    Beneath::Opened openRegular(const QString &path) const;
    Beneath::Opened openDirectory(const QString &path) const;

private:
    void warnIfOutside(const QByteArray &path, Beneath::State state) const;

    QString name;
    QString directory;
    Beneath data;
};
