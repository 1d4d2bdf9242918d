#pragma once

#include <QDBusArgument>
#include <QMetaType>
#include <QString>
#include <QStringList>

/// Answer of a validation hook. On the wire: (bbbisas); fields 2, 3 and 6 travel unchanged.
class UpdateReport
{
public:
    bool isValid() const { return valid; }
    int getRequiresReboot() const { return requiresReboot; }
    QString getMessage() const { return message; }

    void setValid(bool newValid) { valid = newValid; }
    void setRequiresReboot(int newRequiresReboot) { requiresReboot = newRequiresReboot; }
    void setMessage(const QString &newMessage) { message = newMessage; }

private:
    friend QDBusArgument &operator<<(QDBusArgument &argument, const UpdateReport &record);
    friend const QDBusArgument &operator>>(const QDBusArgument &argument, UpdateReport &record);

    bool valid = false;
    bool flag2 = false;
    bool flag3 = false;
    int requiresReboot = 0;
    QString message;
    QStringList texts6;
};

Q_DECLARE_METATYPE(UpdateReport)

/// Make the record known to the bus. Calling it again does nothing.
void registerDBusUpdateReport();
