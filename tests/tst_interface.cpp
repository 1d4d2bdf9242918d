#include "platform/records/Capability.h"
#include "platform/records/Setting.h"
#include "platform/records/UpdateReport.h"
#include "tests/support/TestDevice.h"

#include <QDir>
#include <QDomDocument>
#include <QTest>

namespace {

QVariant setting(const QString &value)
{
    return QVariant::fromValue(Setting("S", value));
}

} // namespace

/// The service's methods as a client on the bus sees them.
class tst_interface : public QObject
{
    Q_OBJECT

    std::unique_ptr<TestDevice> device;

    QString settings() const { return device->call("printSettings").arguments().value(0).toString(); }

    int capability() const
    {
        return qdbus_cast<Capability>(
                   device->call("getCapability", {"SAVE_RESTORE_ENABLE"}).arguments().value(0))
            .getState();
    }

    QString tasks() const
    {
        return device->call("printTasks", {}, "Scheduler").arguments().value(0).toString();
    }

private Q_SLOTS:
    void init()
    {
        device = std::make_unique<TestDevice>();
        device->addModule("A", "<files><file>a.txt</file></files>");
        QVERIFY(device->start());
    }

    void cleanup() { QCOMPARE(TestDevice::retire(device), QString()); }

    void start()
    {
        for (const char *path : {"Save", "Restore"}) {
            const QFileInfo directory(device->path(QString("tmp/VYXApplication/SaveRestore/") + path));
            QVERIFY(directory.isDir());
            QCOMPARE(int(directory.permissions() & 0x0fff) & 0x077, 0);
        }
        QCOMPARE(device->logged("does not exist, creating.").size(), 2);
        QCOMPARE(settings(),
                 QString("Save/Restore enabled: true\nSave/Restore level: all\nSave/Restore url: %1\n"
                         "Schedule hour: 3\nSchedule type: Disabled\n")
                     .arg(device->repositoryPath().chopped(1)));
        QCOMPARE(capability(), int(Capability::AVAILABLE));
        QVERIFY(device->hasLogged("Found restorable config file for module : A (PID "));
        QVERIFY(device->call("printRestorableFiles")
                    .arguments()
                    .value(0)
                    .toString()
                    .contains("\t'a.txt', zipped: 'false', priority: 'high'\n"));
    }

    void introspection()
    {
        QDBusMessage message = QDBusMessage::createMethodCall(
            "com.corvane.Pelorin.VYXSaveRestore", "/com/corvane/Pelorin/VYXSaveRestore",
            "org.freedesktop.DBus.Introspectable", "Introspect");
        QDomDocument document;
        QVERIFY(document.setContent(device->bus().call(message).arguments().value(0).toString()));
        QStringList methods;
        const QDomNodeList elements = document.elementsByTagName("method");
        for (int index = 0; index < elements.size(); ++index) {
            const QDomElement method = elements.at(index).toElement();
            if (method.parentNode().toElement().attribute("name") != "com.corvane.Pelorin.VYXInterface") {
                continue;
            }
            QString text = method.attribute("name") + "(";
            QString result;
            for (QDomElement argument = method.firstChildElement("arg"); !argument.isNull();
                 argument = argument.nextSiblingElement("arg")) {
                QVERIFY(!argument.attribute("value").isEmpty());
                (argument.attribute("direction") == "in" ? text : result) += argument.attribute("type");
            }
            methods << text + ")" + result;
        }
        const QString expected =
            R"(startSaveOnRepository()b startSaveOnRepository(i) startRestoreFromRepository()
            resetToDefault()b resetToFactory() setSaveRestoreHighPriority(b) setSaveRestoreNormalPriority(b)
            setSaveRestoreLowPriority(b) setSaveRestorePriority(bbb) setSaveFrequency(iibb) setRepositoryUrl(s)
            setSaveRestoreLevel(i) setSaveRestoreSchedule(ibb) printRestorableFiles()s printSettings()s
            repositoryUrlChanged(SETTING)aSETTING saveRestoreLevelChanged(SETTING)aSETTING
            saveRestoreScheduleChanged(SETTING)aSETTING saveRestoreScheduleValidation(SETTING)(bbbisas)
            saveRestoreScheduleTypeChanged(SETTING)aSETTING getCapabilities()a{s(si)} getCapabilities(i)a{s(si)}
            getCapability(s)(si) getCapability(is)(si))";
        QCOMPARE(methods.join(' ').replace("(sssssssiiia(ss)bbs)", "SETTING"), expected.simplified());
    }

    void errorRepliesLeaveTheServiceSane()
    {
        for (int round = 0; round < 3; ++round) {
            for (const char *method : {"resetToDefault", "resetToFactory"}) {
                const QDBusMessage reply = device->call(method);
                QCOMPARE(reply.type(), QDBusMessage::ErrorMessage);
                QCOMPARE(reply.errorMessage(), QString("Adaptor::invokeMethod failed: ") + method);
            }
            QVERIFY(settings().contains("enabled: true"));
        }
        QCOMPARE(device->call("setRepositoryUrl", {7}).type(), QDBusMessage::ErrorMessage);
        QVERIFY(device->save());
    }

    void levels_data()
    {
        QTest::addColumn<QString>("level");
        QTest::addColumn<QString>("lines");
        QTest::newRow("none") << "0"
                              << "Save/Restore enabled: false\nSave/Restore url";
        QTest::newRow("mandatory") << "1"
                                   << "Save/Restore enabled: true\nSave/Restore level: mandatory\n";
        QTest::newRow("all") << "2"
                             << "Save/Restore enabled: true\nSave/Restore level: all\n";
        QTest::newRow("unknown") << "3"
                                 << "Save/Restore enabled: false\nSave/Restore url";
        QTest::newRow("no number") << "abc"
                                   << "Save/Restore enabled: false\nSave/Restore url";
    }
    void levels()
    {
        QFETCH(QString, level);
        QFETCH(QString, lines);
        const QDBusMessage reply = device->call("saveRestoreLevelChanged", {setting(level)});
        QCOMPARE(reply.type(), QDBusMessage::ReplyMessage);
        QCOMPARE(qdbus_cast<ListSetting>(reply.arguments().value(0)).size(), 0);
        QVERIFY2(settings().startsWith(lines), qPrintable(settings()));
        QCOMPARE(capability(),
                 int(lines.contains("enabled: true") ? Capability::AVAILABLE : Capability::UNAVAILABLE));
    }

    void scheduleValidation_data()
    {
        QTest::addColumn<bool>("valid");
        for (const char *value : {"1", "24"}) {
            QTest::newRow(value) << true;
        }
        for (const char *value : {"0", "25", "abc", "-1", ""}) {
            QTest::newRow(value) << false;
        }
    }
    void scheduleValidation()
    {
        QFETCH(bool, valid);
        const auto report = qdbus_cast<UpdateReport>(
            device->call("saveRestoreScheduleValidation", {setting(QTest::currentDataTag())})
                .arguments()
                .value(0));
        QCOMPARE(report.isValid(), valid);
        QCOMPARE(report.getMessage(), valid ? "" : "Schedule time/frequency is invalid");
        QCOMPARE(report.getRequiresReboot(), 0);
    }

    void schedule()
    {
        device->call("setSettingValue", {"SaveRestoreScheduleType", "2"}, "SettingsManager");
        QVERIFY(settings().contains("Schedule type: Time"));
        QVERIFY(device->hasLogged("First schedule of a save/restore operation"));
        const QString first = tasks();
        QVERIFY2(first.contains("startSaveOnRepository"), qPrintable(first));
        device->markLog();
        device->call("setSettingValue", {"SaveRestoreSchedule", "6"}, "SettingsManager");
        QVERIFY(device->hasLogged("Unschedule previous save/restore operation (Scheduler task id: 1)"));
        QCOMPARE(tasks().count("startSaveOnRepository"), 1);
        QVERIFY(tasks() != first);

        device->markLog();
        const QString before = tasks();
        device->call("setSaveFrequency", {0, 0, true, true});
        QVERIFY(device->hasLogged("error"));
        QCOMPARE(tasks(), before);
        device->call("setSettingValue", {"SaveRestoreSchedule", "25"}, "SettingsManager");
        QCOMPARE(tasks(), before);
        device->call("saveRestoreScheduleTypeChanged", {setting("0")});
        QCOMPARE(tasks().count("startSaveOnRepository"), 0);
    }

    void repositoryUrls()
    {
        device->markLog();
        QDir(device->path("media")).mkdir("other");
        const QString other = device->path("media/other");
        device->call("repositoryUrlChanged", {setting(other)});
        QVERIFY(device->hasLogged("Changing local repository: '" + other + "'"));
        QVERIFY(settings().contains("url: " + other + "\n"));
        QVERIFY(device->save());
        QVERIFY(QFile::exists(other + "/modules-list.sav"));
        QVERIFY(device->entries().isEmpty());

        device->call("repositoryUrlChanged", {setting("https://localhost/x")});
        QVERIFY(device->hasLogged("Creating new distant repository: 'https://localhost/x'"));
        QVERIFY(device->hasLogged("DevMode: no CTL check"));
        QVERIFY(!device->save());
        QVERIFY(device->hasLogged("Connection to repository failed (https://localhost/x)."));
        device->call("repositoryUrlChanged", {setting("")});
        QCOMPARE(capability(), int(Capability::UNAVAILABLE));
        device->call("setRepositoryUrl", {QString()});
        device->markLog();
        device->call("repositoryUrlChanged", {setting(device->repositoryPath().chopped(1))});
        QVERIFY(device->hasLogged("Creating new local repository: '"));
        QCOMPARE(capability(), int(Capability::AVAILABLE));
        QVERIFY(device->save());
    }

    void refusedSaves()
    {
        QFile::remove(device->path("data/dev_mode"));
        QVERIFY(!device->save());
        QVERIFY(device->hasLogged("Unsecured URL: abort backup operations."));
        device->call("setSaveRestoreLevel", {0});
        QVERIFY(!device->save());
        QVERIFY(device->hasLogged("Save/Restore is disabled: abort backup operations."));
        QCOMPARE(capability(), int(Capability::UNAVAILABLE));
        device->call("startSaveOnRepository", {5});
        QVERIFY(device->hasLogged("Save/Restore is disabled: abort"));
        QVERIFY(device->entries().isEmpty());
    }

    void repositoryThatIsGone()
    {
        QDir(device->repositoryPath()).removeRecursively();
        QVERIFY(!device->save());
        QVERIFY(device->hasLogged("Connection to repository failed ("));
        QCOMPARE(capability(), int(Capability::AVAILABLE));
    }

    void nameIsTaken()
    {
        QProcess second;
        QProcessEnvironment environment = device->service().processEnvironment();
        second.setProcessEnvironment(environment);
        second.start(QString(PROGRAMS) + "/VYXSaveRestore", QStringList());
        QVERIFY(second.waitForFinished(20000));
        QCOMPARE(second.exitCode(), 1);
        QVERIFY(second.readAllStandardError().contains(
            "could not take the bus name com.corvane.Pelorin.VYXSaveRestore"));
        environment.insert("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nowhere");
        second.setProcessEnvironment(environment);
        second.start(QString(PROGRAMS) + "/VYXSaveRestore", QStringList());
        QVERIFY(second.waitForFinished(20000));
        QCOMPARE(second.exitCode(), 1);
        QVERIFY(second.readAllStandardError().contains("no connection to the system bus"));
    }
};

QTEST_GUILESS_MAIN(tst_interface)
#include "tst_interface.moc"
