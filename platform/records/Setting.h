#pragma once

#include <QDBusArgument>
#include <QList>
#include <QMetaType>
#include <QPair>
#include <QString>

/// One setting of the settings module. On the wire: (sssssssiiia(ss)bbs).
///
/// Only the name (field 1) and the value (field 2) have a meaning here; every other field travels unchanged.
class Setting
{
public:
    Setting() = default;
    Setting(QString name, QString value);

    QString getName() const { return name; }
    QString getValue() const { return value; }
    void setName(const QString &newName) { name = newName; }
    void setValue(const QString &newValue) { value = newValue; }

private:
    friend QDBusArgument &operator<<(QDBusArgument &argument, const Setting &record);
    friend const QDBusArgument &operator>>(const QDBusArgument &argument, Setting &record);

    QString name;
    QString value;
    QString text3;
    QString text4;
    QString text5;
    QString text6;
    QString text7;
    int number8 = 0;
    int number9 = 0;
    int number10 = 0;
    QList<QPair<QString, QString>> pairs11;
    bool flag12 = false;
    bool flag13 = false;
    QString text14;
};

using ListSetting = QList<Setting>;

Q_DECLARE_METATYPE(Setting)

/// Make the record and its list known to the bus. Calling it again does nothing.
void registerDBusSetting();
