#pragma once

#include <QDBusArgument>
#include <QMap>
#include <QMetaType>
#include <QString>

/// Something a module can do, and whether it can do it now. On the wire: (si).
class Capability
{
public:
    enum State { AVAILABLE = 0, UNAVAILABLE = 1, TEMPORARY_UNAVAILABLE = 2 };

    Capability() = default;
    Capability(QString name, State state);

    QString getName() const { return name; }
    State getState() const { return static_cast<State>(state); }
    void setName(const QString &newName) { name = newName; }
    void setState(State newState) { state = newState; }

    friend bool operator==(const Capability &left, const Capability &right) = default;

private:
    friend QDBusArgument &operator<<(QDBusArgument &argument, const Capability &record);
    friend const QDBusArgument &operator>>(const QDBusArgument &argument, Capability &record);

    QString name;
    int state = UNAVAILABLE;
};

using MapQStringCapability = QMap<QString, Capability>;

Q_DECLARE_METATYPE(Capability)

/// Make the record and its map known to the bus. Calling it again does nothing.
void registerDBusCapability();
