#include "platform/records/Setting.h"

#include <QDBusMetaType>

#include <utility>

Setting::Setting(QString name, QString value) : name(std::move(name)), value(std::move(value)) {}

QDBusArgument &operator<<(QDBusArgument &argument, const Setting &record)
{
    argument.beginStructure();
    argument << record.name << record.value << record.text3 << record.text4 << record.text5 << record.text6
             << record.text7 << record.number8 << record.number9 << record.number10 << record.pairs11
             << record.flag12 << record.flag13 << record.text14;
    argument.endStructure();
    return argument;
}

const QDBusArgument &operator>>(const QDBusArgument &argument, Setting &record)
{
    argument.beginStructure();
    argument >> record.name >> record.value >> record.text3 >> record.text4 >> record.text5 >> record.text6 >>
        record.text7 >> record.number8 >> record.number9 >> record.number10 >> record.pairs11 >>
        record.flag12 >> record.flag13 >> record.text14;
    argument.endStructure();
    return argument;
}

void registerDBusSetting()
{
    qDBusRegisterMetaType<QPair<QString, QString>>();
    qDBusRegisterMetaType<QList<QPair<QString, QString>>>();
    qDBusRegisterMetaType<Setting>();
    qDBusRegisterMetaType<ListSetting>();
    qRegisterMetaType<Setting>("Setting");
    qRegisterMetaType<ListSetting>("ListSetting");
}
