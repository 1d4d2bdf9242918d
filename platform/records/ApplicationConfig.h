#pragma once

#include <QDBusArgument>
#include <QList>
#include <QMetaType>
#include <QString>

/// One middleware module as the ApplicationManager knows it. On the wire: (sssss).
class ApplicationConfig
{
public:
    ApplicationConfig() = default;
    ApplicationConfig(QString name, QString id, QString version, QString release, QString state);

    QString getName() const { return name; }
    /// The module's process id as text; "0" while it is not running.
    QString getID() const { return id; }
    QString getVersion() const { return version; }
    QString getRelease() const { return release; }
    /// "STARTED" or "STOPPED".
    QString getState() const { return state; }

private:
    friend QDBusArgument &operator<<(QDBusArgument &argument, const ApplicationConfig &record);
    friend const QDBusArgument &operator>>(const QDBusArgument &argument, ApplicationConfig &record);

    QString name;
    QString id;
    QString version;
    QString release;
    QString state;
};

using ListApplicationConfig = QList<ApplicationConfig>;

Q_DECLARE_METATYPE(ApplicationConfig)

/// Make the record and its list known to the bus. Calling it again does nothing.
void registerDBusApplicationConfig();
