#pragma once

#include <QString>

#include <optional>

/// The most bytes of a version file.
constexpr qint64 largestVersionFile = 4096;

/// The release and version of which a module's data were saved.
struct SavedVersion
{
    QString release;
    QString version;

    /// From the first line of a version file: the texts before and after the first "::". Without one the
    /// release is the whole line and the version the line without its first character.
    static SavedVersion parse(const QString &line);
};

/// A module whose saved data are of another release or version than the installed module.
struct Migration
{
    QString module;
    SavedVersion saved;
    QString release;
    QString version;

    /// The five fields joined by ";".
    QString text() const;
};

/// Nothing when saved and installed release and version are the same.
std::optional<Migration> neededMigration(const QString &module, const SavedVersion &saved,
                                         const QString &release, const QString &version);
