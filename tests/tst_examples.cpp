#include "restorable/RestorableObject.h"
#include "tests/support/OperationTest.h"

/// The modules that the guide for their authors shows, and the schema of what they ship: each example does
/// the same.
class tst_examples : public OperationTest
{
    Q_OBJECT

    QString module;

    static void eachModule()
    {
        columns<QString>("name");
        row("on the platform layer", QString("Thermometer"));
        if (WITH_HYGROMETER) {
            row("in C", QString("Hygrometer"));
        }
    }

    /// The module with these settings, its migration program, and what the test adds.
    void install(const QByteArray &settings = {})
    {
        QFETCH(QString, name);
        module = name;
        device->addProgram(module, "examples/" + module.toLower());
        QDir().mkpath(device->dataPath(module, ""));
        if (!settings.isEmpty()) {
            device->writeData(module, "settings.conf", settings);
        }
        const QString program = migrationProgram();
        QDir().mkpath(QFileInfo(program).path());
        const QString built = QString(PROGRAMS) + "/" + module + "Migration";
        QVERIFY(
            QFile::copy(QFile::exists(built) ? built : SOURCES "/examples/thermometer/migration", program));
    }

    QString migrationProgram() const
    {
        return device->path("usr/lib/VYXApplication/migration/" + module + "Migration");
    }

    QVariant ask(const QString &method) const { return device->result(method, {}, module); }
    QByteArray query(const QString &sql) const { return device->sql(module, "readings", sql).trimmed(); }
    bool holdsRows(const QString &condition, int least = 1) const
    {
        return TestDevice::waitUntil(
            [&] { return query("SELECT count(*) FROM reading WHERE " + condition).toInt() >= least; });
    }
    bool measures() const
    {
        const int before = ask("readingsTaken").toInt();
        return TestDevice::waitUntil([&] { return ask("readingsTaken").toInt() > before; });
    }

    /// The saved database, loaded beside; the count of its rows when it is in order, else -1.
    int savedRows(const QString &file = "saved") const
    {
        const QString saved = device->path(file);
        TestDevice::shell("rm -f '" + saved + "'; zcat '" +
                          device->repositoryPath(module + "++readings.dump.gz") + "' | sqlite3 -bail '" +
                          saved + "'");
        const QList<QByteArray> answer =
            TestDevice::sqlOnFile(saved, "PRAGMA integrity_check; SELECT readings FROM total;"
                                         "SELECT count(*) FROM reading")
                .split('\n');
        return answer.value(0) == "ok" && answer.value(1) == answer.value(2) ? answer.value(2).toInt() : -1;
    }

    bool isQuiet() const
    {
        static const QRegularExpression loud("^(warning|error) ");
        return device->wholeLog().split('\n').filter(loud).isEmpty();
    }

private Q_SLOTS:
    void init()
    {
        if (QByteArray(QTest::currentTestFunction()) != "schema") {
            startAfresh();
        }
    }

    void pausesForASave_data() { eachModule(); }
    /// Stopped, its database closed and without a journal, and nothing that it has taken is missing.
    void pausesForASave()
    {
        install();
        device->addModule("Slow",
                          "<databases><database name='d'><dependency>" + module +
                              "</dependency></database></databases>",
                          "--pause-delay 700");
        device->sql("Slow", "d", "CREATE TABLE t(v)");
        QVERIFY(device->start("VYXSaveRestore"));
        for (int round = 0; round < 3; ++round) {
            QVERIFY(measures());
            const int taken = ask("readingsTaken").toInt();
            const QDBusPendingCall running = device->callLater("startSaveOnRepository");
            QVERIFY(TestDevice::waitUntil([&] { return device->moduleState(module) == "T"; }));
            const QString descriptors = QString("/proc/%1/fd").arg(device->modulePid(module));
            QVERIFY(!TestDevice::shell("ls -l " + descriptors).contains("readings.data"));
            QCOMPARE(QDir(device->dataPath(module, "")).entryList(QDir::Files),
                     QStringList({"readings.data", "settings.conf"}));
            QVERIFY(TestDevice::resultOf(running).toBool());
            QVERIFY(savedRows() >= taken);
            QVERIFY(device->allRun({module}) && measures());
        }
        QVERIFY(isQuiet());
    }

    void followsARestore_data() { eachModule(); }
    void followsARestore()
    {
        install("unit=first\nsensor=0\n");
        QVERIFY(device->start("VYXSaveRestore") && measures());
        device->writeData(module, "settings.conf", "unit=saved\n");
        device->writeData(module, "exports/june/1.csv", "1;2");
        QVERIFY(device->save());
        const int saved = savedRows();
        QVERIFY(saved > 0);
        TestDevice::shell("cd '" + device->dataPath(module, "") +
                          "' && rm -r readings.data* exports/june && echo unit=lost >settings.conf");
        restore();
        QCOMPARE(device->readData(module, "exports/june/1.csv"), "1;2");
        QVERIFY(TestDevice::waitUntil([&] { return ask("unit") == "saved"; }));
        QCOMPARE(
            query("ATTACH '" + device->path("saved") +
                  "' AS saved; SELECT count(*) FROM saved.reading WHERE id NOT IN (SELECT id FROM reading)"),
            "0");
        QVERIFY(holdsRows("1", saved + 1));
        QVERIFY(device->allRun({module}) && isQuiet());
    }

    void resets_data() { eachModule(); }
    /// The factory reset waits for one that does not run: nothing comes back meanwhile.
    void resets()
    {
        install("unit=odd\nsensor=1\n");
        device->addModule("Ended", "");
        QVERIFY(device->start() && holdsRows("1", 2));
        device->call("stopModule", {"Ended"}, "ApplicationManager");
        QStringList reports;
        device->listen({"reset_default_done", "reset_factory_done"}, store.get(), [&](const VYXEvent &event) {
            if (event.getArgument("ModuleName") == module) {
                reports << event.getName() + " " + event.getArgument("NeedReboot").toString();
            }
        });
        device->writeData(module, "exports/june/1.csv", "1;2");
        query("UPDATE reading SET kept = 1 WHERE id = 1");
        QVERIFY(TestDevice::waitUntil([&] { return ask("readingsTaken").toInt() >= 60; }));
        const int before = ask("readingsTaken").toInt();
        QCOMPARE(device->result("resetToDefault"), QVariant(true));
        QCOMPARE(query("SELECT id FROM reading WHERE id <= 2"), "1");
        QVERIFY(ask("unit") != "odd" && device->readData(module, "settings.conf").contains("sensor=0\n"));
        QVERIFY(QFile::exists(device->dataPath(module, "exports/june/1.csv")));
        QVERIFY(device->save());
        const int since = ask("readingsTaken").toInt() - before;
        QVERIFY(savedRows() > 0 && savedRows() <= since + 1);

        device->call("stopModule", {module}, "ApplicationManager");
        device->call("startModule", {module}, "ApplicationManager");
        QVERIFY(device->waitForName(module));
        QCOMPARE(device->result("resetToDefault"), QVariant(false));
        QVERIFY(holdsRows("id > 2") && isQuiet());

        device->call("resetToFactory");
        QVERIFY(TestDevice::waitUntil([&] { return device->modulePid(module) == 0; }));
        QVERIFY(TestDevice::waitUntil([&] { return reports.size() == 3; }));
        QCOMPARE(reports, QStringList({"reset_default_done true", "reset_default_done false",
                                       "reset_factory_done false"}));
        QCOMPARE(query("SELECT (SELECT count(*) FROM reading) + (SELECT readings FROM total)"), "0");
        QCOMPARE(QDir(device->dataPath(module, "exports")).count(), 2);
    }

    void migrates_data() { eachModule(); }
    /// Data of release 2025, saved there, meet the module of release 2026.
    void migrates()
    {
        install();
        query("CREATE TABLE reading(id INTEGER PRIMARY KEY AUTOINCREMENT, taken INTEGER, value REAL,"
              "kept INTEGER NOT NULL DEFAULT 0); INSERT INTO reading(value) VALUES(1), (2); PRAGMA "
              "user_version = 1");
        QVERIFY(device->start("VYXSaveRestore") && measures());
        device->call("setModuleRelease", {module, "2025", "0.9"}, "ApplicationManager");
        QVERIFY(device->save());
        QVERIFY(device->entries().contains(module + "Migration"));
        QCOMPARE(
            query("SELECT count(*), (SELECT count(*) FROM sqlite_master WHERE name = 'total') FROM reading"),
            "2|0");
        device->call("setModuleRelease", {module, "2026", "1.0"}, "ApplicationManager");
        for (const char *damage : {"rm readings.data*", "true"}) {
            TestDevice::shell("cd '" + device->dataPath(module, "") + "' && " + damage);
            restore();
            QVERIFY(TestDevice::waitUntil([&] { return query("PRAGMA user_version") == "2"; }));
            QVERIFY(holdsRows("id > 2"));
            QCOMPARE(query("SELECT count(*) - (SELECT readings FROM total), sum(value IN (1, 2) AND id < 3) "
                           "FROM reading"),
                     "0|2");
        }
        QVERIFY(isQuiet());

        const QString run = "VYX_DEVICE_ROOT='" + device->path("") + "' '" + migrationProgram() + "' " +
                            module + " 2025 2025 >/dev/null 2>&1; echo $?";
        QCOMPARE(TestDevice::shell(run), "0\n");
        device->call("stopModule", {module}, "ApplicationManager");
        device->writeData(module, "readings.data", "no database at all, but long enough to look like one");
        QVERIFY(TestDevice::shell(run) != "0\n");
    }

    void schema_data()
    {
        columns<QByteArray, bool, QString>("document", "valid", "read");
        const auto inside = [](const char *name, const QByteArray &content, bool valid, const char *read) {
            row(name, "<restorable>" + content + "</restorable>", valid, QString(read));
        };
        const auto file = [&](const char *name, const QByteArray &content, bool valid, const char *read) {
            inside(name, "<files><file>" + content + "</file></files>", valid, read);
        };
        const auto database = [&](const char *name, const QByteArray &content, bool valid, const char *read) {
            inside(name, "<databases><database " + content + "</databases>", valid, read);
        };
        inside("nothing", "", true, "");
        inside("any order, twice",
               "<files/><reset-to-default/><databases><database name='d'/></databases>"
               "<files><file>a</file></files><databases><database name='e'/></databases>",
               true, "a=00 d e");
        row("schema named",
            QByteArray("<restorable xmlns:xsi='http://www.w3.org/2001/XMLSchema-instance' "
                       "xsi:noNamespaceSchemaLocation='restorable.xsd'/>"),
            true, QString());
        row("other root", QByteArray("<saved><files><file>a</file></files></saved>"), false, QString("a=00"));
        row("namespace", QByteArray("<restorable xmlns='urn:x'><files><file>a</file></files></restorable>"),
            false, QString("a=00"));
        row("not closed", QByteArray("<restorable><files><file>a</file></files>"), false, QString());
        inside("unknown section", "<file>a</file>", false, "");
        inside("unknown entry", "<files><dir>a</dir></files>", false, "");
        inside("text beside", "a<files>b<file>c</file></files>", false, "c=00");
        inside("attribute of a section", "<files zip='true'><file>a</file></files>", false, "a=00");

        inside("attributes",
               "<files><file priority='low' zip='true'>a</file><file zip='false'>b</file></files>", true,
               "a=21 b=00");
        inside("no such priority", "<files><file priority='High'>a</file></files>", false, "a=00");
        inside("zip=1", "<files><file zip='1'>a</file></files>", false, "a=00");
        inside("unknown attribute", "<files><file zipped='true'>a</file></files>", false, "a=00");
        file("odd path", "My d/ü [1] &amp; 100%/..x/.s/.saverestore/.saverestor-", true,
             "My d/ü [1] & 100%/..x/.s/.saverestore/.saverestor-=00");
        for (const char *path :
             {"", "/a", "../a", "a/../b", "..", "a\tb", "a\nb", ".saverestore-x", "a/.saverestore-"}) {
            file(qPrintable("refused: " + QString(path)), path, false, "");
        }
        file("doubled slashes", "a//b/", false, "a/b=00");
        file("dot", "./a", false, "a=00");
        file("blanks", " a ", false, " a =00");
        file("element inside", "a<b>c</b>", false, "ac=00");
        inside("file twice", "<files><file>a</file></files><files><file zip='true'>a</file></files>", false,
               "a=00");
        file("3800 bytes", QByteArray(3800, 'a'), true, qPrintable(QString(3800, 'a') + "=00"));
        file("3801 bytes", QByteArray(3801, 'a'), false, "");
        file("3802 bytes, 1901 characters", QByteArray("ü").repeated(1901), true, "");

        database("everything",
                 "name='d' priority='high'><dependency>A b</dependency><sql-command table-name='t'>\n"
                 "SELECT 1\n</sql-command><dependency>C</dependency></database>",
                 true, "d(t) +A b +C");
        database("no name", "/>", false, "");
        database("name is a path", "name='../d'/>", false, "");
        database("name is the service's", "name='.saverestore-d'/>", false, "");
        database("TAB in the name", "name='a&#9;b'/>", false, "");
        database("no such priority of a database", "name='d' priority='mandatory'/>", false, "d");
        database("database twice", "name='d'/><database name='d'/>", false, "d");
        database("no table", "name='d'><sql-command>SELECT 1</sql-command></database>", false, "d()");
        database("no selection", "name='d'><sql-command table-name='t'> </sql-command></database>", false,
                 "d(t)");
        for (const char *dependency : {"", ".A", "-A", "A:B", "A;B", "A/B"}) {
            database(qPrintable("dependency " + QString(dependency)),
                     "name='d'><dependency>" + QByteArray(dependency) + "</dependency></database>", false,
                     "d");
        }
        inside("dependency elsewhere", "<databases><dependency>A</dependency></databases>", false, "");
        inside("reset",
               "<reset-to-default><sql-command db-name='d'>DELETE FROM t</sql-command></reset-to-default>",
               true, "default:d");
        inside("reset of nothing",
               "<reset-to-factory><sql-command>DELETE FROM t</sql-command></reset-to-factory>", false,
               "factory:");
        inside("reset by a table",
               "<reset-to-factory><sql-command table-name='t'>DELETE</sql-command></reset-to-factory>", false,
               "factory:");
    }
    /// What the schema lets pass the service takes as it stands, within its bounds; of what it refuses, the
    /// guide says what the service makes of it.
    void schema()
    {
        QFETCH(QByteArray, document);
        QFETCH(bool, valid);
        QFETCH(QString, read);
        const QTemporaryDir root;
        const QString path = root.filePath("restorable.xml");
        writeFile(path, document);
        QCOMPARE(QProcess::execute("xmllint", {"--noout", "--nonet", "--schema",
                                               SOURCES "/docs/restorable.xsd", path}) == 0,
                 valid);

        qputenv("VYX_DEVICE_ROOT", root.path().toUtf8());
        for (const char *name : {"d", "e"}) {
            writeFile(root.filePath(QString("data/VYXApplication/M/%1.data").arg(name)), "x");
        }
        const RestorableObject object("M", "1", "1", "1", path);
        qunsetenv("VYX_DEVICE_ROOT");
        QStringList parts;
        for (const RestorableFile &file : object.getFiles()) {
            parts << QString("%1=%2%3").arg(file.getPath(), QString::number(file.getPriority()),
                                            QString::number(file.isZipped()));
        }
        for (const RestorableDatabase &database : object.getDatabases()) {
            QString text = database.getName();
            for (const auto &command : database.getSqlCommands()) {
                text += "(" + command.first + ")";
            }
            parts << text;
        }
        for (const QString &dependency : object.getDependencies()) {
            parts << "+" + dependency;
        }
        for (const auto &command : object.getResetToDefaultCommands()) {
            parts << "default:" + command.first;
        }
        for (const auto &command : object.getResetToFactoryCommands()) {
            parts << "factory:" + command.first;
        }
        QCOMPARE(parts.join(' '), read);
    }
};

QTEST_GUILESS_MAIN(tst_examples)
#include "tst_examples.moc"
