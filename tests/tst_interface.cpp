#include "dbus/VYXSaveRestoreAdaptor.h"
#include "platform/records/Capability.h"
#include "platform/records/Setting.h"
#include "platform/records/UpdateReport.h"
#include "tests/support/TestDevice.h"

#include <QDBusContext>
#include <QDBusPendingCall>
#include <QDir>
#include <QDomDocument>
#include <QRegularExpression>
#include <QTest>

namespace {

QVariant setting(const QString &value)
{
    return QVariant::fromValue(Setting("S", value));
}

} // namespace

/// What the adaptor's parent must be, with hardly a method.
class BareModule : public QObject, public QDBusContext
{
    Q_OBJECT

public Q_SLOTS:
    QString printSettings() { return "sane"; }
};

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
        device->addModule("Silent", "", "--ignore-reset");
        QVERIFY(device->start("VYXSaveRestore"));
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

    void methodThatTheModuleLacks()
    {
        BareModule module;
        createSaveRestoreAdaptor(&module);
        QDBusConnection bus = device->bus();
        QVERIFY(bus.registerObject("/bare", &module));
        const auto reply = [&](const char *method) {
            const QString name = QDBusConnection::connectToBus(device->busAddress(), "caller").name();
            QDBusPendingCall call = QDBusConnection(name).asyncCall(QDBusMessage::createMethodCall(
                bus.baseService(), "/bare", "com.corvane.Pelorin.VYXInterface", method));
            TestDevice::waitUntil([&] { return call.isFinished(); });
            return call.reply();
        };
        for (int round = 0; round < 3; ++round) {
            QCOMPARE(reply("resetToFactory").errorMessage(), "Adaptor::invokeMethod failed: resetToFactory");
            QCOMPARE(reply("printSettings").arguments().value(0), QVariant("sane"));
        }
        QDBusConnection::disconnectFromBus("caller");
        QCOMPARE(device->call("setRepositoryUrl", {7}).type(), QDBusMessage::ErrorMessage);
    }

    /// Each step changes one setting through the SettingsManager; what printSettings and the capability say.
    void settingsFollowTheSettingsManager()
    {
        const QString url = device->repositoryPath().chopped(1);
        const QString rest = url + "|3|Disabled";
        const QString none = "false|" + rest + " unavailable";
        const QString all = "true|all|" + rest + " available";
        struct Step
        {
            const char *setting;
            QString value;
            QString state;
        };
        const QList<Step> steps = {
            {"Level", "1", "true|mandatory|" + rest + " available"},
            {"Level", "2", all},
            {"Level", "0", none},
            {"Level", "2", all},
            {"Level", "3", none},
            {"Level", "-1", none},
            {"Level", "2x", none},
            {"Level", "", none},
            {"Level", "99999999999", none},
            {"Url", url, none},
            {"Level", "2", all},
            {"Url", "", "false|all|" + rest + " unavailable"},
            {"Url", "http://localhost/x", "true|all|http://localhost/x|3|Disabled available"},
            {"Url", url, all},
            {"Schedule", "1", "true|all|" + url + "|1|Disabled available"},
            {"Schedule", "24", "true|all|" + url + "|24|Disabled available"},
            {"Schedule", "0", {}},
            {"Schedule", "25", {}},
            {"Schedule", "-3", {}},
            {"Schedule", "abc", {}},
            {"Schedule", "6.5", {}},
            {"Schedule", "", {}},
            {"Schedule", "3", all},
            {"ScheduleType", "1", "true|all|" + url + "|3|Frequency available"},
            {"ScheduleType", "2", "true|all|" + url + "|3|Time available"},
            {"ScheduleType", "3", "true|all|" + url + "|3|Time available"},
            {"ScheduleType", "-1", "true|all|" + url + "|3|Time available"},
            {"ScheduleType", "0", all},
            {"ScheduleType", "1", "true|all|" + url + "|3|Frequency available"},
            {"ScheduleType", "abc", all}};
        QStringList published;
        device->listen({"capability_changed"}, this, [&](const VYXEvent &event) {
            published << (event.getArgument("State").toInt() == 0 ? "available" : "unavailable");
        });
        QString before = all;
        QStringList changes;
        for (const Step &step : steps) {
            const auto report = qdbus_cast<UpdateReport>(
                device
                    ->call("setSettingValue", {QString("SaveRestore") + step.setting, step.value},
                           "SettingsManager")
                    .arguments()
                    .value(0));
            QCOMPARE(report.isValid(), !step.state.isEmpty());
            QCOMPARE(report.getMessage(), report.isValid() ? "" : "Schedule time/frequency is invalid");
            static const QRegularExpression names("(?<=^|\n)[^:]*: ");
            QStringList values = settings().remove(names).chopped(1).split('\n');
            const QString state = values.join('|') + (capability() == 0 ? " available" : " unavailable");
            QVERIFY2(state == (report.isValid() ? step.state : before),
                     qPrintable(step.value + ": " + state));
            if (before.section(' ', 1) != state.section(' ', 1)) {
                changes << state.section(' ', 1);
            }
            before = state;
        }
        QVERIFY(TestDevice::waitUntil([&] { return published.size() >= changes.size(); }));
        QCOMPARE(published, changes);
        device->call("setSaveRestorePriority", {true, false, true});
        QVERIFY(settings().contains("level: mandatory\n"));
        device->call("setSaveRestoreHighPriority", {false});
        QVERIFY(!settings().contains("level"));
    }

    void urlThatIsUndefinedAtFirst()
    {
        QCOMPARE(device->stopService(), 0);
        device->call("setSettingValue", {"SaveRestoreUrl", "UNDEFINED"}, "SettingsManager");
        QVERIFY(device->startService());
        QVERIFY(device->hasLogged("Undefined default value for SaveRestoreUrl Setting"));
        QCOMPARE(settings(), QString("Save/Restore enabled: false\nSave/Restore level: all\n"
                                     "Save/Restore url: \nSchedule hour: 3\nSchedule type: Disabled\n"));
        QVERIFY(!device->save());
        device->call("setSettingValue", {"SaveRestoreUrl", device->repositoryPath()}, "SettingsManager");
        QVERIFY(settings().startsWith("Save/Restore enabled: true\n"));
        QVERIFY(device->save());
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
        device->call("saveRestoreScheduleTypeChanged", {setting("0")});
        QCOMPARE(tasks().count("startSaveOnRepository"), 0);
    }

    void scheduledSaves()
    {
        qint64 clockOffset = 0;
        const auto reachNextTime = [&] {
            const QString next = tasks().section("next: ", -1).trimmed();
            const QDateTime now = QDateTime::currentDateTime().addSecs(clockOffset);
            const int seconds = int(now.secsTo(QDateTime::fromString(next, Qt::ISODate))) + 1;
            clockOffset += seconds;
            device->markLog();
            device->call("advanceClock", {seconds}, "Scheduler");
            return tasks().count("startSaveOnRepository") == 1 && seconds > 0 && seconds <= 24 * 3600 + 1;
        };
        const auto logs = [&](const char *line) {
            return TestDevice::waitUntil([&] { return device->hasLogged(line); });
        };
        device->call("setSettingValue", {"SaveRestoreScheduleType", "2"}, "SettingsManager");
        QVERIFY(reachNextTime());
        QVERIFY(logs("Saving operations done"));
        QVERIFY(device->entries().contains("A.cksum"));

        device->call("setSettingValue", {"SaveRestoreLevel", "0"}, "SettingsManager");
        QVERIFY(reachNextTime());
        QVERIFY(logs("debug VYXSaveRestore: Save/Restore is disabled: abort"));
        device->call("setSettingValue", {"SaveRestoreLevel", "2"}, "SettingsManager");

        const QDBusPendingCall running = device->callLater("resetToDefault");
        QVERIFY(logs("module Silent has not reset yet"));
        QVERIFY(reachNextTime());
        QVERIFY(logs("Another save, restore or reset is running: abort."));

        QCOMPARE(device->stopService(), 0);
        QVERIFY(device->startService());
        QVERIFY(reachNextTime());
        QVERIFY(logs("Saving operations done"));
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
        device->call("setSettingValue", {"SaveRestoreScheduleType", "2"}, "SettingsManager");
        QProcess second;
        QProcessEnvironment environment = device->service().processEnvironment();
        second.setProcessEnvironment(environment);
        second.start(QString(PROGRAMS) + "/VYXSaveRestore", QStringList());
        QVERIFY(second.waitForFinished(20000));
        QCOMPARE(second.exitCode(), 1);
        QVERIFY(second.readAllStandardError().contains(
            "VYXSaveRestore: the bus name com.corvane.Pelorin.VYXSaveRestore is taken\n"));
        QCOMPARE(tasks().count("startSaveOnRepository"), 1);
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
