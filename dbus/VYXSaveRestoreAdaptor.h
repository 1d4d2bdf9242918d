#pragma once

#include "platform/records/Capability.h"
#include "platform/records/Setting.h"
#include "platform/records/UpdateReport.h"

#include <QDBusAbstractAdaptor>
#include <QString>

/// The service's interface on the bus.
///
/// Each method calls the method of the same name and arguments of the parent, through the meta-object system,
/// and hands its result back. A parent without such a method: `VYXException *` is thrown.
class VYXSaveRestoreAdaptor : public QDBusAbstractAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.corvane.Pelorin.VYXInterface")
    // clang-format off
    Q_CLASSINFO("D-Bus Introspection",
                "  <interface name=\"com.corvane.Pelorin.VYXInterface\">\n"
                "    <!-- Save Operations -->\n"
                "    <method name=\"startSaveOnRepository\">\n"
                "      <arg type=\"b\" direction=\"out\"/>\n"
                "    </method>\n"
                "    <method name=\"startSaveOnRepository\">\n"
                "      <arg name=\"taskId\" type=\"i\" direction=\"in\"/>\n"
                "    </method>\n"
                "    <!-- Restore Operations -->\n"
                "    <method name=\"startRestoreFromRepository\"/>\n"
                "    <!-- Reset Commands -->\n"
                "    <method name=\"resetToDefault\">\n"
                "      <arg type=\"b\" direction=\"out\"/>\n"
                "    </method>\n"
                "    <method name=\"resetToFactory\"/>\n"
                "    <!-- Configuration Commands -->\n"
                "    <method name=\"setSaveRestoreHighPriority\">\n"
                "      <arg name=\"high\" type=\"b\" direction=\"in\"/>\n"
                "    </method>\n"
                "    <method name=\"setSaveRestoreNormalPriority\">\n"
                "      <arg name=\"normal\" type=\"b\" direction=\"in\"/>\n"
                "    </method>\n"
                "    <method name=\"setSaveRestoreLowPriority\">\n"
                "      <arg name=\"low\" type=\"b\" direction=\"in\"/>\n"
                "    </method>\n"
                "    <method name=\"setSaveRestorePriority\">\n"
                "      <arg name=\"high\" type=\"b\" direction=\"in\"/>\n"
                "      <arg name=\"normal\" type=\"b\" direction=\"in\"/>\n"
                "      <arg name=\"low\" type=\"b\" direction=\"in\"/>\n"
                "    </method>\n"
                "    <method name=\"setSaveFrequency\">\n"
                "      <arg name=\"hour\" type=\"i\" direction=\"in\"/>\n"
                "      <arg name=\"minute\" type=\"i\" direction=\"in\"/>\n"
                "      <arg name=\"frequency\" type=\"b\" direction=\"in\"/>\n"
                "      <arg name=\"enable\" type=\"b\" direction=\"in\"/>\n"
                "    </method>\n"
                "    <method name=\"setRepositoryUrl\">\n"
                "      <arg name=\"url\" type=\"s\" direction=\"in\"/>\n"
                "    </method>\n"
                "    <method name=\"setSaveRestoreLevel\">\n"
                "      <arg name=\"level\" type=\"i\" direction=\"in\"/>\n"
                "    </method>\n"
                "    <method name=\"setSaveRestoreSchedule\">\n"
                "      <arg name=\"schedule\" type=\"i\" direction=\"in\"/>\n"
                "      <arg name=\"type\" type=\"b\" direction=\"in\"/>\n"
                "      <arg name=\"activate\" type=\"b\" direction=\"in\"/>\n"
                "    </method>\n"
                "    <!-- Debug Commands -->\n"
                "    <method name=\"printRestorableFiles\">\n"
                "      <arg type=\"s\" direction=\"out\"/>\n"
                "    </method>\n"
                "    <method name=\"printSettings\">\n"
                "      <arg type=\"s\" direction=\"out\"/>\n"
                "    </method>\n"
                "    <!-- Settings Hooks Entry -->\n"
                "    <method name=\"repositoryUrlChanged\">\n"
                "      <arg type=\"a(sssssssiiia(ss)bbs)\" direction=\"out\"/>\n"
                "      <annotation name=\"org.qtproject.QtDBus.QtTypeName.Out0\" value=\"ListSetting\"/>\n"
                "      <arg name=\"setting\" type=\"(sssssssiiia(ss)bbs)\" direction=\"in\"/>\n"
                "      <annotation name=\"org.qtproject.QtDBus.QtTypeName.In0\" value=\"Setting\"/>\n"
                "    </method>\n"
                "    <method name=\"saveRestoreLevelChanged\">\n"
                "      <arg type=\"a(sssssssiiia(ss)bbs)\" direction=\"out\"/>\n"
                "      <annotation name=\"org.qtproject.QtDBus.QtTypeName.Out0\" value=\"ListSetting\"/>\n"
                "      <arg name=\"setting\" type=\"(sssssssiiia(ss)bbs)\" direction=\"in\"/>\n"
                "      <annotation name=\"org.qtproject.QtDBus.QtTypeName.In0\" value=\"Setting\"/>\n"
                "    </method>\n"
                "    <method name=\"saveRestoreScheduleChanged\">\n"
                "      <arg type=\"a(sssssssiiia(ss)bbs)\" direction=\"out\"/>\n"
                "      <annotation name=\"org.qtproject.QtDBus.QtTypeName.Out0\" value=\"ListSetting\"/>\n"
                "      <arg name=\"setting\" type=\"(sssssssiiia(ss)bbs)\" direction=\"in\"/>\n"
                "      <annotation name=\"org.qtproject.QtDBus.QtTypeName.In0\" value=\"Setting\"/>\n"
                "    </method>\n"
                "    <method name=\"saveRestoreScheduleValidation\">\n"
                "      <arg type=\"(bbbisas)\" direction=\"out\"/>\n"
                "      <annotation name=\"org.qtproject.QtDBus.QtTypeName.Out0\" value=\"UpdateReport\"/>\n"
                "      <arg name=\"setting\" type=\"(sssssssiiia(ss)bbs)\" direction=\"in\"/>\n"
                "      <annotation name=\"org.qtproject.QtDBus.QtTypeName.In0\" value=\"Setting\"/>\n"
                "    </method>\n"
                "    <method name=\"saveRestoreScheduleTypeChanged\">\n"
                "      <arg type=\"a(sssssssiiia(ss)bbs)\" direction=\"out\"/>\n"
                "      <annotation name=\"org.qtproject.QtDBus.QtTypeName.Out0\" value=\"ListSetting\"/>\n"
                "      <arg name=\"setting\" type=\"(sssssssiiia(ss)bbs)\" direction=\"in\"/>\n"
                "      <annotation name=\"org.qtproject.QtDBus.QtTypeName.In0\" value=\"Setting\"/>\n"
                "    </method>\n"
                "    <!-- Capabilities Entry -->\n"
                "    <method name=\"getCapabilities\">\n"
                "      <arg type=\"a{s(si)}\" direction=\"out\"/>\n"
                "      <annotation name=\"org.qtproject.QtDBus.QtTypeName.Out0\" value=\"MapQStringCapability\"/>\n"
                "    </method>\n"
                "    <method name=\"getCapabilities\">\n"
                "      <arg type=\"a{s(si)}\" direction=\"out\"/>\n"
                "      <annotation name=\"org.qtproject.QtDBus.QtTypeName.Out0\" value=\"MapQStringCapability\"/>\n"
                "      <arg name=\"listId\" type=\"i\" direction=\"in\"/>\n"
                "    </method>\n"
                "    <method name=\"getCapability\">\n"
                "      <arg type=\"(si)\" direction=\"out\"/>\n"
                "      <annotation name=\"org.qtproject.QtDBus.QtTypeName.Out0\" value=\"Capability\"/>\n"
                "      <arg name=\"name\" type=\"s\" direction=\"in\"/>\n"
                "    </method>\n"
                "    <method name=\"getCapability\">\n"
                "      <arg type=\"(si)\" direction=\"out\"/>\n"
                "      <annotation name=\"org.qtproject.QtDBus.QtTypeName.Out0\" value=\"Capability\"/>\n"
                "      <arg name=\"listId\" type=\"i\" direction=\"in\"/>\n"
                "      <arg name=\"name\" type=\"s\" direction=\"in\"/>\n"
                "    </method>\n"
                "  </interface>\n"
                "")
    // clang-format on

public:
    explicit VYXSaveRestoreAdaptor(QObject *parent);

public Q_SLOTS:
    MapQStringCapability getCapabilities(int listId);
    MapQStringCapability getCapabilities();
    Capability getCapability(int listId, const QString &name);
    Capability getCapability(const QString &name);
    QString printRestorableFiles();
    QString printSettings();
    ListSetting repositoryUrlChanged(Setting setting);
    bool resetToDefault();
    void resetToFactory();
    ListSetting saveRestoreLevelChanged(Setting setting);
    ListSetting saveRestoreScheduleChanged(Setting setting);
    ListSetting saveRestoreScheduleTypeChanged(Setting setting);
    UpdateReport saveRestoreScheduleValidation(Setting setting);
    void setRepositoryUrl(const QString &url);
    void setSaveFrequency(int hour, int minute, bool frequency, bool enable);
    void setSaveRestoreHighPriority(bool high);
    void setSaveRestoreLevel(int level);
    void setSaveRestoreLowPriority(bool low);
    void setSaveRestoreNormalPriority(bool normal);
    void setSaveRestorePriority(bool high, bool normal, bool low);
    void setSaveRestoreSchedule(int schedule, bool type, bool activate);
    void startRestoreFromRepository();
    void startSaveOnRepository(int taskId);
    bool startSaveOnRepository();

private:
    void check(bool invoked, const char *method);
    ListSetting callHook(const char *method, const Setting &setting);
    void callWithFlag(const char *method, bool flag);
};
