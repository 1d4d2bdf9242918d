#pragma once

#include <QMap>
#include <QString>

#include <optional>

/// Settings kept in a file of "name=value" lines. A change replaces the file as a whole, so that a power cut
/// leaves the old or the new one.
class SettingsStore
{
public:
    explicit SettingsStore(QString path);

    /// Read the file; false when it exists and cannot be read. A missing file is an empty store.
    bool load();

    std::optional<QString> value(const QString &name) const;

    /// True when a name and a value can be kept: a plain name, and a value of one line.
    static bool isStorable(const QString &name, const QString &value);

    /// Change a setting and write the file; false when it could not be written, the store is then as before.
    bool setValue(const QString &name, const QString &value);

private:
    bool write(const QMap<QString, QString> &content) const;

    QString path;
    QMap<QString, QString> settings;
};
