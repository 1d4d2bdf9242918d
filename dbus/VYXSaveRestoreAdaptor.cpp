#include "dbus/VYXSaveRestoreAdaptor.h"

#include "platform/core/VYXException.h"

#include <QDebug>
#include <QMetaObject>

VYXSaveRestoreAdaptor::VYXSaveRestoreAdaptor(QObject *parent) : QDBusAbstractAdaptor(parent)
{
    setAutoRelaySignals(true);
}

void VYXSaveRestoreAdaptor::check(bool invoked, const char *method)
{
    if (invoked) {
        return;
    }
    qDebug() << "Adaptor::invokeMethod failed:" << method;
    throw new VYXException(parent(), VYXException::InvocationFailed,
                           QString("Adaptor::invokeMethod failed: ") + method);
}

ListSetting VYXSaveRestoreAdaptor::callHook(const char *method, const Setting &setting)
{
    ListSetting result;
    check(QMetaObject::invokeMethod(parent(), method, Q_RETURN_ARG(ListSetting, result),
                                    Q_ARG(Setting, setting)),
          method);
    return result;
}

void VYXSaveRestoreAdaptor::callWithFlag(const char *method, bool flag)
{
    check(QMetaObject::invokeMethod(parent(), method, Q_ARG(bool, flag)), method);
}

MapQStringCapability VYXSaveRestoreAdaptor::getCapabilities(int listId)
{
    MapQStringCapability result;
    check(QMetaObject::invokeMethod(parent(), "getCapabilities", Q_RETURN_ARG(MapQStringCapability, result),
                                    Q_ARG(int, listId)),
          "getCapabilities");
    return result;
}

MapQStringCapability VYXSaveRestoreAdaptor::getCapabilities()
{
    MapQStringCapability result;
    check(QMetaObject::invokeMethod(parent(), "getCapabilities", Q_RETURN_ARG(MapQStringCapability, result)),
          "getCapabilities");
    return result;
}

Capability VYXSaveRestoreAdaptor::getCapability(int listId, const QString &name)
{
    Capability result;
    check(QMetaObject::invokeMethod(parent(), "getCapability", Q_RETURN_ARG(Capability, result),
                                    Q_ARG(int, listId), Q_ARG(QString, name)),
          "getCapability");
    return result;
}

Capability VYXSaveRestoreAdaptor::getCapability(const QString &name)
{
    Capability result;
    check(QMetaObject::invokeMethod(parent(), "getCapability", Q_RETURN_ARG(Capability, result),
                                    Q_ARG(QString, name)),
          "getCapability");
    return result;
}

QString VYXSaveRestoreAdaptor::printRestorableFiles()
{
    QString result;
    check(QMetaObject::invokeMethod(parent(), "printRestorableFiles", Q_RETURN_ARG(QString, result)),
          "printRestorableFiles");
    return result;
}

QString VYXSaveRestoreAdaptor::printSettings()
{
    QString result;
    check(QMetaObject::invokeMethod(parent(), "printSettings", Q_RETURN_ARG(QString, result)),
          "printSettings");
    return result;
}

ListSetting VYXSaveRestoreAdaptor::repositoryUrlChanged(Setting setting)
{
    return callHook("repositoryUrlChanged", setting);
}

bool VYXSaveRestoreAdaptor::resetToDefault()
{
    bool result = false;
    check(QMetaObject::invokeMethod(parent(), "resetToDefault", Q_RETURN_ARG(bool, result)),
          "resetToDefault");
    return result;
}

void VYXSaveRestoreAdaptor::resetToFactory()
{
    check(QMetaObject::invokeMethod(parent(), "resetToFactory"), "resetToFactory");
}

ListSetting VYXSaveRestoreAdaptor::saveRestoreLevelChanged(Setting setting)
{
    return callHook("saveRestoreLevelChanged", setting);
}

ListSetting VYXSaveRestoreAdaptor::saveRestoreScheduleChanged(Setting setting)
{
    return callHook("saveRestoreScheduleChanged", setting);
}

ListSetting VYXSaveRestoreAdaptor::saveRestoreScheduleTypeChanged(Setting setting)
{
    return callHook("saveRestoreScheduleTypeChanged", setting);
}

UpdateReport VYXSaveRestoreAdaptor::saveRestoreScheduleValidation(Setting setting)
{
    UpdateReport result;
    check(QMetaObject::invokeMethod(parent(), "saveRestoreScheduleValidation",
                                    Q_RETURN_ARG(UpdateReport, result), Q_ARG(Setting, setting)),
          "saveRestoreScheduleValidation");
    return result;
}

void VYXSaveRestoreAdaptor::setRepositoryUrl(const QString &url)
{
    check(QMetaObject::invokeMethod(parent(), "setRepositoryUrl", Q_ARG(QString, url)), "setRepositoryUrl");
}

void VYXSaveRestoreAdaptor::setSaveFrequency(int hour, int minute, bool frequency, bool enable)
{
    check(QMetaObject::invokeMethod(parent(), "setSaveFrequency", Q_ARG(int, hour), Q_ARG(int, minute),
                                    Q_ARG(bool, frequency), Q_ARG(bool, enable)),
          "setSaveFrequency");
}

void VYXSaveRestoreAdaptor::setSaveRestoreHighPriority(bool high)
{
    callWithFlag("setSaveRestoreHighPriority", high);
}

void VYXSaveRestoreAdaptor::setSaveRestoreLevel(int level)
{
    check(QMetaObject::invokeMethod(parent(), "setSaveRestoreLevel", Q_ARG(int, level)),
          "setSaveRestoreLevel");
}

void VYXSaveRestoreAdaptor::setSaveRestoreLowPriority(bool low)
{
    callWithFlag("setSaveRestoreLowPriority", low);
}

void VYXSaveRestoreAdaptor::setSaveRestoreNormalPriority(bool normal)
{
    callWithFlag("setSaveRestoreNormalPriority", normal);
}

void VYXSaveRestoreAdaptor::setSaveRestorePriority(bool high, bool normal, bool low)
{
    check(QMetaObject::invokeMethod(parent(), "setSaveRestorePriority", Q_ARG(bool, high),
                                    Q_ARG(bool, normal), Q_ARG(bool, low)),
          "setSaveRestorePriority");
}

void VYXSaveRestoreAdaptor::setSaveRestoreSchedule(int schedule, bool type, bool activate)
{
    check(QMetaObject::invokeMethod(parent(), "setSaveRestoreSchedule", Q_ARG(int, schedule),
                                    Q_ARG(bool, type), Q_ARG(bool, activate)),
          "setSaveRestoreSchedule");
}

void VYXSaveRestoreAdaptor::startRestoreFromRepository()
{
    check(QMetaObject::invokeMethod(parent(), "startRestoreFromRepository"), "startRestoreFromRepository");
}

void VYXSaveRestoreAdaptor::startSaveOnRepository(int taskId)
{
    check(QMetaObject::invokeMethod(parent(), "startSaveOnRepository", Q_ARG(int, taskId)),
          "startSaveOnRepository");
}

bool VYXSaveRestoreAdaptor::startSaveOnRepository()
{
    bool result = false;
    check(QMetaObject::invokeMethod(parent(), "startSaveOnRepository", Q_RETURN_ARG(bool, result)),
          "startSaveOnRepository");
    return result;
}
