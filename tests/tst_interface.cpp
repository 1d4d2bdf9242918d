#include "dbus/VYXSaveRestoreAdaptor.h"
#include "platform/records/Capability.h"
#include "platform/records/Setting.h"
#include "platform/records/UpdateReport.h"
#include "tests/support/TestDevice.h"

#include <QDBusContext>
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

    QString settings() const { return device->result("printSettings").toString(); }
    QString tasks() const { return device->result("printTasks", {}, "Scheduler").toString(); }

    UpdateReport set(const QString &name, const QString &value) const
    {
        return qdbus_cast<UpdateReport>(
            device->result("setSettingValue", {"SaveRestore" + name, value}, "SettingsManager"));
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
        QCOMPARE(device->capability(), int(Capability::AVAILABLE));
        QVERIFY(device->hasLogged("Found restorable config file for module : A (PID "));
        const QString listing = device->result("printRestorableFiles").toString();
        QVERIFY(listing.contains("\t'a.txt', zipped: 'false', priority: 'high'\n"));
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
            QStringList values;
            QString state; // after each of them; empty when each is refused
        };
        const QList<Step> steps = {
            {"Level", {"1"}, "true|mandatory|" + rest + " available"},
            {"Level", {"2"}, all},
            {"Level", {"0"}, none},
            {"Level", {"2"}, all},
            {"Level", {"3", "-1", "2x", "", "99999999999"}, none},
            {"Url", {url}, none},
            {"Level", {"2"}, all},
            {"Url", {""}, "false|all|" + rest + " unavailable"},
            {"Url", {"http://localhost/x"}, "true|all|http://localhost/x|3|Disabled available"},
            {"Url", {url}, all},
            {"Schedule", {"1"}, "true|all|" + url + "|1|Disabled available"},
            {"Schedule", {"24"}, "true|all|" + url + "|24|Disabled available"},
            {"Schedule", {"0", "25", "-3", "abc", "6.5", ""}, {}},
            {"Schedule", {"3"}, all},
            {"ScheduleType", {"1"}, "true|all|" + url + "|3|Frequency available"},
            {"ScheduleType", {"2", "3", "-1"}, "true|all|" + url + "|3|Time available"},
            {"ScheduleType", {"0"}, all},
            {"ScheduleType", {"1"}, "true|all|" + url + "|3|Frequency available"},
            {"ScheduleType", {"abc"}, all}};
        QStringList published;
        device->listen({"capability_changed"}, this, [&](const VYXEvent &event) {
            published << (event.getArgument("State").toInt() == 0 ? "available" : "unavailable");
        });
        QString before = all;
        QStringList changes;
        for (const auto &[setting, values, expected] : steps) {
            for (const QString &value : values) {
                const UpdateReport report = set(setting, value);
                QVERIFY2(report.isValid() != expected.isEmpty(), qPrintable(value));
                QCOMPARE(report.getMessage(), report.isValid() ? "" : "Schedule time/frequency is invalid");
                static const QRegularExpression names("(?<=^|\n)[^:]*: ");
                const QString shown = settings().remove(names).chopped(1).replace('\n', '|');
                const QString state = shown + (device->capability() == 0 ? " available" : " unavailable");
                QVERIFY2(state == (report.isValid() ? expected : before), qPrintable(value + ": " + state));
                if (before.section(' ', 1) != state.section(' ', 1)) {
                    changes << state.section(' ', 1);
                }
                before = state;
            }
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
        set("Url", "UNDEFINED");
        QVERIFY(device->startService());
        QVERIFY(device->hasLogged("Undefined default value for SaveRestoreUrl Setting"));
        QCOMPARE(settings(), QString("Save/Restore enabled: false\nSave/Restore level: all\n"
                                     "Save/Restore url: \nSchedule hour: 3\nSchedule type: Disabled\n"));
        QVERIFY(!device->save());
        set("Url", device->repositoryPath());
        QVERIFY(settings().startsWith("Save/Restore enabled: true\n"));
        QVERIFY(device->save());
    }

    void absurdSettingsAtTheStart()
    {
        QCOMPARE(TestDevice::retire(device), QString());
        device = std::make_unique<TestDevice>();
        device->write("etc/VYXApplication/settings.conf",
                      "SaveRestoreUrl=https://\nSaveRestoreLevel=all\nSaveRestoreSchedule=-5\n"
                      "SaveRestoreScheduleType=1\n");
        QVERIFY(device->start("VYXSaveRestore"));
        QVERIFY(device->hasLogged("error VYXSaveRestore: A period of -5 hours is refused"));
        QCOMPARE(settings(), QString("Save/Restore enabled: false\nSave/Restore url: (unreadable URL)\n"
                                     "Schedule hour: -5\nSchedule type: Frequency\n"));
        QCOMPARE(tasks(), "");
        device->call("setSaveRestoreLevel", {2});
        QVERIFY(!device->save());
        QVERIFY(device->hasLogged("Connection to repository failed ((unreadable URL))"));
    }

    void schedule()
    {
        set("ScheduleType", "2");
        QVERIFY(settings().contains("Schedule type: Time"));
        QVERIFY(device->hasLogged("First schedule of a save/restore operation"));
        const QString first = tasks();
        QVERIFY2(first.contains("startSaveOnRepository"), qPrintable(first));
        device->markLog();
        set("Schedule", "6");
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
            return tasks().count("startSaveOnRepository") == 1 && seconds > 0 && seconds <= 25 * 3600;
        };
        set("ScheduleType", "2");
        QVERIFY(reachNextTime());
        QVERIFY(device->waitForLog("Saving operations done"));
        QVERIFY(device->entries().contains("A.cksum"));

        set("Level", "0");
        QVERIFY(reachNextTime());
        QVERIFY(device->waitForLog("debug VYXSaveRestore: Save/Restore is disabled: abort"));
        set("Level", "2");

        const QDBusPendingCall running = device->callLater("resetToDefault");
        QVERIFY(device->waitForLog("module Silent has not reset yet"));
        QVERIFY(reachNextTime());
        QVERIFY(device->waitForLog("Another save, restore or reset is running: abort."));

        QCOMPARE(device->stopService(), 0);
        QVERIFY(device->startService());
        QVERIFY(reachNextTime());
        QVERIFY(device->waitForLog("Saving operations done"));
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
        device->call("repositoryUrlChanged", {setting(other + "/missing")});
        QVERIFY(device->hasLogged("' does not exist: the repository stays '" + other + "'"));
        QVERIFY(device->entries().isEmpty());

        device->call("repositoryUrlChanged", {setting("https://localhost/x")});
        QVERIFY(device->hasLogged("Creating new distant repository: 'https://localhost/x'"));
        QVERIFY(device->hasLogged("DevMode: no CTL check"));
        QVERIFY(!device->save());
        QVERIFY(device->hasLogged("Connection to repository failed (https://localhost/x)."));
        device->call("repositoryUrlChanged", {setting("")});
        QCOMPARE(device->capability(), int(Capability::UNAVAILABLE));
        device->call("setRepositoryUrl", {QString()});
        device->markLog();
        device->call("repositoryUrlChanged", {setting(device->repositoryPath().chopped(1))});
        QVERIFY(device->hasLogged("Creating new local repository: '"));
        QCOMPARE(device->capability(), int(Capability::AVAILABLE));
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
        QCOMPARE(device->capability(), int(Capability::UNAVAILABLE));
        device->call("startSaveOnRepository", {5});
        QVERIFY(device->hasLogged("Save/Restore is disabled: abort"));
        QVERIFY(device->entries().isEmpty());
    }

    void repositoryThatIsGone()
    {
        QDir(device->repositoryPath()).removeRecursively();
        QVERIFY(!device->save());
        QVERIFY(device->hasLogged("Connection to repository failed ("));
        QCOMPARE(device->capability(), int(Capability::AVAILABLE));
    }

    void nameIsTaken()
    {
        set("ScheduleType", "2");
        const auto startAnother = [&](const QString &bus) {
            QProcess second;
            QProcessEnvironment environment = device->service().processEnvironment();
            environment.insert("DBUS_SYSTEM_BUS_ADDRESS", bus);
            second.setProcessEnvironment(environment);
            second.start(QString(PROGRAMS) + "/VYXSaveRestore", QStringList());
            const bool ended = second.waitForFinished(20000) && second.exitCode() == 1;
            return ended ? second.readAllStandardError() : QByteArray();
        };
        const QByteArray taken = "VYXSaveRestore: the bus name com.corvane.Pelorin.VYXSaveRestore is taken\n";
        QVERIFY(startAnother(device->busAddress()).contains(taken));
        QCOMPARE(tasks().count("startSaveOnRepository"), 1);
        QVERIFY(startAnother("unix:path=/nowhere").contains("no connection to the system bus"));
    }
};

QTEST_GUILESS_MAIN(tst_interface)
#include "tst_interface.moc"
