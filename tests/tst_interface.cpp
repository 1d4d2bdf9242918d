#include "dbus/SaveRestoreAdaptors.h"
#include "platform/records/UpdateReport.h"
#include "tests/support/OperationTest.h"

#include <QDBusContext>

/// What the adaptor's parent must be, with hardly a method.
class BareModule : public QObject, public QDBusContext
{
    Q_OBJECT

public Q_SLOTS:
    QString printSettings() { return "sane"; }
};

/// The service's methods as a client on the bus sees them.
class tst_interface : public OperationTest
{
    Q_OBJECT

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
        startAfresh();
        device->addModule("A", "<files><file>a.txt</file></files>");
        device->addModule("Silent", "", "--ignore-reset");
        QVERIFY(device->start("VYXSaveRestore"));
    }

    void introspection()
    {
        const QDBusMessage message = QDBusMessage::createMethodCall(
            "com.corvane.Pelorin.VYXSaveRestore", "/com/corvane/Pelorin/VYXSaveRestore",
            "org.freedesktop.DBus.Introspectable", "Introspect");
        const QString xml = device->bus().call(message).arguments().value(0).toString();
        static const QRegularExpression items("<method name=\"(\\w+)|type=\"(.+?)\" direction=\"(in|out)");
        QString methods;
        for (const auto &item :
             items.globalMatch(xml.section("VYXInterface", 1).section("</interface", 0, 0))) {
            const QString separator = item.captured(3) == "in" ? "," : "=";
            methods += item.hasCaptured(1) ? " " + item.captured(1) : separator + item.captured(2);
        }
        const QString expected =
            R"(startSaveOnRepository=b startSaveOnRepository,i startRestoreFromRepository
            resetToDefault=b resetToFactory setSaveRestoreHighPriority,b setSaveRestoreNormalPriority,b
            setSaveRestoreLowPriority,b setSaveRestorePriority,b,b,b setSaveFrequency,i,i,b,b setRepositoryUrl,s
            setSaveRestoreLevel,i setSaveRestoreSchedule,i,b,b printRestorableFiles=s printSettings=s
            repositoryUrlChanged=aSETTING,SETTING saveRestoreLevelChanged=aSETTING,SETTING
            saveRestoreScheduleChanged=aSETTING,SETTING saveRestoreScheduleValidation=(bbbisas),SETTING
            saveRestoreScheduleTypeChanged=aSETTING,SETTING getCapabilities=a{s(si)} getCapabilities=a{s(si)},i
            getCapability=(si),s getCapability=(si),i,s)";
        QCOMPARE(methods.simplified().replace("(sssssssiiia(ss)bbs)", "SETTING"), expected.simplified());
    }

    void methodThatTheModuleLacks()
    {
        BareModule module;
        createSaveRestoreAdaptor(&module);
        QDBusConnection bus = device->bus();
        QVERIFY(bus.registerObject("/bare", &module));
        const auto reply = [&](const char *method) {
            return bus.call(QDBusMessage::createMethodCall(bus.baseService(), "/bare",
                                                           "com.corvane.Pelorin.VYXInterface", method));
        };
        QCOMPARE(reply("resetToFactory").type(), QDBusMessage::ErrorMessage);
        QCOMPARE(reply("printSettings").arguments().value(0), QVariant("sane"));
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
            {"Level", {"0"}, none},
            {"Level", {"2"}, all},
            {"Level", {"3", "-1", "2x", "", "99999999999"}, none},
            {"Url", {url}, none},
            {"Level", {"2"}, all},
            {"Url", {""}, "false|all|" + rest + " unavailable"},
            {"Url", {"http://localhost/x"}, "true|all|http://localhost/x|3|Disabled available"},
            {"Url", {url}, all},
            {"Schedule", {"24"}, "true|all|" + url + "|24|Disabled available"},
            {"Schedule", {"0", "25", "-3", "abc", "6.5", ""}, {}},
            {"Schedule", {"3"}, all},
            {"ScheduleType", {"1"}, "true|all|" + url + "|3|Frequency available"},
            {"ScheduleType", {"2", "3", "-1"}, "true|all|" + url + "|3|Time available"},
            {"ScheduleType", {"0"}, all},
            {"ScheduleType", {"1"}, "true|all|" + url + "|3|Frequency available"},
            {"ScheduleType", {"abc"}, all}};
        QString before = all;
        for (const auto &[setting, values, expected] : steps) {
            for (const QString &value : values) {
                QCOMPARE(set(setting, value).isValid(), !expected.isEmpty());
                static const QRegularExpression names("(?<=^|\n)[^:]*: ");
                const QString state = settings().remove(names).chopped(1).replace('\n', '|') +
                                      (device->capability() == 0 ? " available" : " unavailable");
                QVERIFY2(state == (expected.isEmpty() ? before : expected), qPrintable(value + ": " + state));
                before = state;
            }
        }
        device->call("setSaveRestorePriority", {true, false, true});
        QVERIFY(settings().contains("level: mandatory\n"));
        device->call("setSaveRestoreHighPriority", {false});
        QVERIFY(!settings().contains("level"));
    }

    void oddSettingsAtTheStart_data()
    {
        columns<QByteArray, QString>("stored", "shown");
        row("no URL", QByteArray("Url=UNDEFINED\nSaveRestoreLevel=2\nSaveRestoreSchedule=3"),
            "false\nSave/Restore level: all\nSave/Restore url: \nSchedule hour: 3\n");
        row("absurd", QByteArray("Url=https://\nSaveRestoreLevel=all\nSaveRestoreSchedule=-5"),
            "false\nSave/Restore url: (unreadable URL)\nSchedule hour: -5\n");
    }
    void oddSettingsAtTheStart()
    {
        QFETCH(QByteArray, stored);
        QFETCH(QString, shown);
        QCOMPARE(TestDevice::retire(device), QString());
        device = std::make_unique<TestDevice>();
        device->write("etc/VYXApplication/settings.conf",
                      "SaveRestore" + stored + "\nSaveRestoreScheduleType=1\n");
        QVERIFY(device->start());
        QCOMPARE(settings(), "Save/Restore enabled: " + shown + "Schedule type: Frequency\n");
        QCOMPARE(tasks().isEmpty(), stored.endsWith("-5"));
        device->call("setSaveRestoreLevel", {2});
        QVERIFY(!device->save());
        set("Url", device->repositoryPath());
        QVERIFY(device->save());
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
        QVERIFY(TestDevice::waitUntil([&] { return device->entries().contains("modules-list.sav"); }));

        const QString before = tasks();
        device->call("setSaveFrequency", {0, 0, true, true}); // no period
        QCOMPARE(tasks(), before);
        set("Schedule", "6");
        QVERIFY(tasks() != before);
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
        set("ScheduleType", "0");
        QCOMPARE(tasks(), "");
    }

    void repositoriesAndLevels()
    {
        QDir(device->path("media")).mkdir("other");
        const QString other = device->path("media/other");
        set("Url", other);
        set("Url", other + "/missing");
        QVERIFY(device->save());
        QVERIFY(QFile::exists(other + "/modules-list.sav"));
        QVERIFY(device->entries().isEmpty());
        set("Url", "https://localhost/x");
        QVERIFY(!device->save());
        device->call("setRepositoryUrl", {QString()});
        set("Url", device->repositoryPath());
        device->writeData("A", "a.txt", "saved");
        QVERIFY(device->save());
        device->writeData("A", "a.txt", "changed");
        device->call("setSaveRestoreLevel", {0});
        QVERIFY(!device->save());
        device->call("startSaveOnRepository", {5});
        restore();
        QCOMPARE(device->entry("a.txt") + device->readData("A", "a.txt"), "savedchanged");
    }

    void arguments()
    {
        const auto answer = [this](const QStringList &arguments) {
            QProcess second;
            second.setProcessChannelMode(QProcess::MergedChannels);
            second.start(device->service().program(), arguments);
            second.waitForFinished(20000);
            return QString::number(second.exitCode()) + " " + second.readAll();
        };
        QVERIFY(QRegularExpression("^0 VYXSaveRestore [0-9.]+\n$").match(answer({"--version"})).hasMatch());
        QVERIFY(answer({"--help"}).startsWith("0 Usage: "));
        for (const char *unknown : {"--versions", "-x", "save", ""}) {
            QVERIFY(answer({"--help", unknown}).startsWith("2 VYXSaveRestore: "));
        }
    }

    void secondInstanceEnds()
    {
        set("ScheduleType", "2");
        QProcessEnvironment environment = device->service().processEnvironment();
        for (const QString &bus : {device->path("bus"), QString("/nowhere")}) {
            environment.insert("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + bus);
            QProcess second;
            second.setProcessEnvironment(environment);
            second.start(device->service().program(), QStringList());
            QVERIFY(second.waitForFinished(20000));
            QCOMPARE(second.exitCode(), 1);
            QCOMPARE(tasks().count("startSaveOnRepository"), 1);
        }
    }
};

QTEST_GUILESS_MAIN(tst_interface)
#include "tst_interface.moc"
