#include "saverestorectl/ExitStatus.h"
#include "tests/support/DataTable.h"
#include "tests/support/Terminal.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QUrl>

#include <csignal>

/// The command of the integrator and the service technician.
class tst_ctl : public QObject
{
    Q_OBJECT

    std::unique_ptr<TestDevice> device;

    /// What it prints, each line as JSON.
    QList<QJsonObject> objects(const QByteArray &output) const
    {
        QList<QJsonObject> list;
        for (const QByteArray &line : output.split('\n')) {
            const QJsonObject object = QJsonDocument::fromJson(line).object();
            if (!line.isEmpty() && (object["version"].toInt() != 1 || object["type"].toString().isEmpty())) {
                qFatal("no object of the format: %s", line.constData());
            }
            list << object;
        }
        list.removeLast();
        return list;
    }

    /// Run it to its end: what it printed, with its exit status in front.
    QByteArray run(const QStringList &arguments) const
    {
        QProcess process;
        process.setProcessEnvironment(environment());
        process.start(QString(PROGRAMS) + "/saverestorectl", arguments);
        process.waitForFinished(60000);
        return QByteArray::number(process.exitCode()) + "\n" + process.readAllStandardOutput() +
               process.readAllStandardError();
    }

    QProcessEnvironment environment() const
    {
        QProcessEnvironment values = QProcessEnvironment::systemEnvironment();
        values.insert("VYX_DEVICE_ROOT", device->path({}));
        values.insert("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + device->path("bus"));
        values.insert("LC_ALL", "C.UTF-8");
        values.insert("TERM", "xterm");
        values.remove("NO_COLOR");
        return values;
    }

private Q_SLOTS:
    void init() { device = std::make_unique<TestDevice>(); }
    void cleanup() { QCOMPARE(TestDevice::retire(device), QString()); }

    /// Faults with their lines, of files that begin with `<r>` in line 1 and the text in line 2.
    void faultyDescriptions_data()
    {
        columns<QByteArray, QByteArray>("text", "faults");
        row("no XML", QByteArray("<files>\n<file>a</files>"), QByteArray("3 not-well-formed"));
        row("cut off", QByteArray("<files>\n<file>a</file>\n"), QByteArray("4 not-well-formed"));
        row("too deep", QByteArray("<x>").repeated(20), QByteArray("2 too-large"));
        row("too many", QByteArray("<x/>\n").repeated(5001), QByteArray("5001 too-large"));
        row("nothing", QByteArray("<!-- -->"), QByteArray("1 nothing-described"));
        row("section", QByteArray("<file>a.txt</file>\n<database name='d'/>"),
            QByteArray("1 nothing-described, 2 unknown-element, 3 unknown-element"));
        row("nested", QByteArray("<files><database name='d'/>\n<file>a<b/>.txt</file></files>"),
            QByteArray("2 unknown-element, 3 unknown-element"));
        row("attribute", QByteArray("<files kind='x'>\n<file\n prio='low'>a.txt</file></files>"),
            QByteArray("2 unknown-attribute, 3 unknown-attribute"));
        row("text", QByteArray("<files>a.txt\n<file>a.txt</file>\n\n b.txt\n</files>"),
            QByteArray("2 stray-text, 5 stray-text"));
        row("priority", QByteArray("<files>\n<file priority='High'>a.txt</file></files>"),
            QByteArray("3 unknown-priority"));
        row("database's priority",
            QByteArray("<databases>\n\n<database name='d' priority='low'/></databases>"),
            QByteArray("4 database-priority"));
        row("zip", QByteArray("<files><file zip='yes'>conf</file>\n<file zip='true'>a.txt</file></files>"),
            QByteArray("2 unknown-zip, 2 left-out, 3 zip-without-use"));
        row("outside",
            QByteArray("<files><file>/etc/passwd</file>\n<file>conf/../../N/x</file>\n<file></file>"
                       "\n<file>\na.txt\n</file></files>"),
            QByteArray(
                "1 nothing-described, 2 path-outside, 3 path-outside, 4 path-outside, 5 path-outside"));
        row("own name", QByteArray("<files><file>a.txt</file>\n<file>conf/.saverestore-new.x</file></files>"),
            QByteArray("3 path-outside"));
        row("too long",
            QByteArray("<files><file>a.txt</file>\n<file>" + QByteArray(3801, 'x') + "</file></files>"),
            QByteArray("3 path-too-long"));
        row("twice",
            QByteArray("<files><file>a.txt</file>\n<file>./a.txt/</file></files><databases>\n"
                       "<database name='d'/>\n<database name='d'/></databases>"),
            QByteArray("3 path-twice, 5 database-twice"));
        row("overlap",
            QByteArray("<databases><database name='d'/></databases><files><file zip='true'>conf</file>\n"
                       "<file>conf/sub/x</file>\n<file>d.data</file></files>"),
            QByteArray("3 saved-twice, 4 saved-twice, 4 database-as-file"));
        row("missing",
            QByteArray("<databases><database name='gone'/>\n</databases><files>\n<file>gone</file></files>"),
            QByteArray("2 database-missing, 4 path-missing"));
        row("database names",
            QByteArray("<databases><database name='../M/d'/>\n<database name='a/b'/>\n<database/>\n"
                       "<database name=' d'/></databases>"),
            QByteArray(
                "2 database-name, 3 database-name, 4 database-name, 5 outer-space, 5 database-missing"));
        row("dependencies",
            QByteArray(
                "<databases><database name='d'><dependency>M</dependency>\n<dependency>a/b</dependency>\n"
                "<dependency>N</dependency><dependency>N</dependency>\n<dependency>Nobody</dependency>"
                "</database>\n<database name='gone'><dependency></dependency></database></databases>"),
            QByteArray("2 dependency-on-itself, 3 dependency-name, 4 dependency-twice, 5 unknown-module, "
                       "6 database-missing, 6 dependency-name"));
        row("selections",
            QByteArray("<databases><database name='d'><sql-command>SELECT 1</sql-command>\n"
                       "<sql-command table-name='t'>DELETE FROM t</sql-command>\n"
                       "<sql-command table-name='t'/></database></databases>"),
            QByteArray("2 sql-without-table, 3 sql-no-select, 4 sql-empty"));
        row("resets",
            QByteArray("<reset-to-default><sql-command>DELETE FROM t</sql-command>\n"
                       "<sql-command db-name='gone'>DELETE FROM t</sql-command>\n"
                       "<sql-command db-name='d'> </sql-command></reset-to-default>"),
            QByteArray("2 reset-database, 3 reset-database, 4 sql-empty"));
        row("data",
            QByteArray(
                "<databases><database name='no'/></databases><files>\n<file>out</file>\n<file>pipe</file>"
                "\n<file>mixed</file>\n<file zip='true'>mixed</file></files>"),
            QByteArray("2 no-database, 3 leads-out, 4 wrong-kind, 5 left-out, 6 path-twice"));
    }
    void faultyDescriptions()
    {
        QFETCH(QByteArray, text);
        QFETCH(QByteArray, faults);
        TestDevice::shell(
            "cd '" + device->path("data/VYXApplication") +
            "'; mkdir -p N M/conf/sub M/mixed/sub; cd M; "
            "echo a | tee a.txt conf/sub/x mixed/a no.data; sqlite3 d.data 'CREATE TABLE t(a)'; "
            "ln -s /etc/passwd out; mkfifo pipe; ln -s ../../N mixed/link");
        device->write("etc/VYXApplication/module/M/restorable.xml", "<r>\n" + text + "</r>");
        const QByteArray output =
            run({"check", "--json", device->path("etc/VYXApplication/module/M/restorable.xml")});
        QByteArrayList found;
        bool refused = false;
        for (const QJsonObject &object : objects(output.mid(2))) {
            if (object["type"] == "fault") {
                found << QByteArray::number(object["line"].toInt()) + " " +
                             object["fault"].toString().toUtf8();
                refused = refused || object["severity"] == "error";
            }
        }
        QCOMPARE(found.join(", "), faults);
        QCOMPARE(output.left(1), refused ? "8" : "0");
    }

    /// In a terminal: the bar goes to its end, fits when the terminal becomes narrow, and no name steers it.
    void terminal()
    {
        device->addModule("Deep",
                          "<databases><database name='d'/></databases><files><file>dir</file></files>",
                          "--pause-delay 1500");
        device->sql("Deep", "d", "CREATE TABLE t(a)");
        device->addModule("Late", "<databases><database name='d'/></databases>", "--pause-delay 1500");
        device->sql("Late", "d", "CREATE TABLE t(a)");
        device->writeData("Deep", "dir/Größe\x1b]0;owned\x07.txt", "content");
        QVERIFY(device->start());
        Terminal terminal(environment(), 100);
        terminal.start({"save"});
        QVERIFY(terminal.shows("save: copying") && terminal.shows("Deep") && terminal.shows("kB/s"));
        const QByteArray wide = terminal.shown();
        terminal.resize(30);
        QCOMPARE(terminal.end(), 0);
        const QByteArray all = terminal.shown();
        QVERIFY(wide.contains("\u2591") && all.contains("\x1b[32mSuccess\x1b[0m") && all.contains("3 done"));
        QVERIFY2(all.contains("dir/Größe\\x1b]0;owned\\x07.txt") && !all.contains("\x1b]"), all);
        int narrow = 0;
        for (const QByteArray &drawn : all.mid(wide.size()).split('\r')) {
            narrow += drawn.contains(" %") ? 1 : 0;
            QVERIFY2(!drawn.contains(" %") || QString::fromUtf8(drawn).remove("\x1b[K").size() < 30, drawn);
        }
        QVERIFY(narrow > 0);

        QProcessEnvironment plain = environment();
        plain.insert("NO_COLOR", "1");
        Terminal second(plain);
        second.start({"restore", "--dry-run"});
        QCOMPARE(second.end(), 0);
        QVERIFY2(second.shown().contains("Success") && !second.shown().contains("\x1b[3"), second.shown());
    }

    /// How a save that would wait for long ends, with which status, and the last thing that is said.
    void endsOfAJob_data()
    {
        columns<int, QByteArray>("status", "said");
        row("Ctrl-C", 23, QByteArray("Save: Cancelled"));
        row("SIGTERM", 23, QByteArray("Save: Cancelled"));
        row("cancel", 23, QByteArray("Save: Cancelled"));
        row("Ctrl-C twice", 130, QByteArray("once more to leave at once"));
        row("service asked to end", 24, QByteArray("Save: Stopped"));
        row("service killed", 5, QByteArray("The service has gone"));
        row("bus killed", 5, QByteArray("The bus has gone"));
    }
    void endsOfAJob()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, said);
        const QByteArray how = QTest::currentDataTag();
        device->addModule("Deaf", "<databases><database name='d'/></databases>", "--ignore-pause");
        device->sql("Deaf", "d", "CREATE TABLE t(a)");
        QVERIFY(device->start("VYXSaveRestore"));
        const auto service = pid_t(device->service().processId());
        Terminal terminal(environment());
        terminal.start({"save"});
        QVERIFY(device->waitForLog("Wait for modules to be paused") && terminal.shows("copying"));
        if (how.startsWith("Ctrl-C")) {
            kill(service, how.endsWith("twice") ? SIGSTOP : SIGCONT);
            terminal.type("\x03");
            QVERIFY(terminal.shows("once more to leave at once"));
            terminal.type(how.endsWith("twice") ? "\x03" : "");
        } else if (how == "SIGTERM") {
            terminal.process.terminate();
        } else if (how == "cancel") {
            QCOMPARE(run({"save"}).left(2), "11");
            Terminal watcher(environment());
            watcher.start({"monitor"});
            QVERIFY(watcher.shows("copying"));
            watcher.type("\x03");
            QCOMPARE(watcher.end(), 0);
            QVERIFY(run({"status"}).contains("Running       save, copying"));
            QVERIFY(run({"cancel"}).startsWith("0\nCancelled"));
        } else if (how == "bus killed") {
            device->killBus();
        } else {
            kill(service, how.endsWith("killed") ? SIGKILL : SIGTERM);
        }
        QCOMPARE(terminal.end(), status);
        QVERIFY2(
            QString::fromUtf8(terminal.shown()).remove(QRegularExpression("\x1b\\[\\d*[mK]")).contains(said),
            terminal.shown());
        kill(service, SIGCONT);
        if (how == "service killed" || how == "bus killed") {
            device.reset();
        } else if (how == "service asked to end") {
            // Once is enough: a second signal could meet a process that handles none any more.
            QVERIFY(device->serviceEnds());
        }
    }

    void nobodyThere()
    {
        QCOMPARE(run({"status"}), "4\nsaverestorectl: The service does not run\n");
        const QJsonObject error = objects(run({"monitor", "--json"}).mid(2)).value(0);
        QCOMPARE(error["type"].toString() + error["code"].toString(), "errorNoService");
        device->killBus();
        QVERIFY(run({"save"}).startsWith("3\nsaverestorectl: There is no system bus"));
        for (const char *wrong : {"", "sav", "save x", "save --priority most", "check", "save --full",
                                  "check --module a/b f", "verify --html x"}) {
            QVERIFY2(run(QString(wrong).split(' ', Qt::SkipEmptyParts)).startsWith("2\nsaverestorectl: "),
                     wrong);
        }
        QVERIFY(run({"check", "--help"}).startsWith("0\nUsage: saverestorectl check"));
        QVERIFY(run({"--version"}).startsWith("0\nsaverestorectl "));
    }

    /// Each code that the interface has, with its own status, which the guide and the man page tell.
    void statusOfEachCode()
    {
        const QString codes = QString(readFile(SOURCES "/docs/control.md")).section("\n## Codes", 1);
        const QString guide = readFile(SOURCES "/docs/saverestorectl.md");
        const QString page = readFile(SOURCES "/packaging/saverestorectl.1");
        static const QRegularExpression entry("^\\| ([A-Z]\\w+) \\|", QRegularExpression::MultilineOption);
        QSet<int> seen;
        for (auto each = entry.globalMatch(codes); each.hasNext();) {
            const QString code = each.next().captured(1);
            const int status = ExitStatus::ofCode(code);
            QVERIFY2(!seen.contains(status) && (status != ExitStatus::Failed || code == "Failed"),
                     qPrintable(code));
            seen << status;
            QVERIFY2(guide.contains(QString("| %1 | `%2` |").arg(QString::number(status), code)),
                     qPrintable(code));
            QVERIFY2(status < 10 || page.contains(QString("%1  %2").arg(QString::number(status), code)),
                     qPrintable(code));
        }
        QCOMPARE(seen.size(), 21);
        QCOMPARE(ExitStatus::ofCode("New"), int(ExitStatus::Failed));
    }

    /// Everything as JSON, each line an object; what belongs to an operation agrees.
    void json()
    {
        device->addModule("A", "<files><file>a.txt</file><file priority='low'>b.txt</file></files>");
        device->writeData("A", "a.txt", "a");
        device->writeData("A", "b.txt", "b");
        QVERIFY(device->start());
        const auto ask = [this](const QStringList &arguments) {
            const QByteArray output = run(arguments + QStringList("--json"));
            QList<QJsonObject> list = objects(output.mid(output.indexOf('\n') + 1));
            list.prepend({{"exit", output.left(output.indexOf('\n')).toInt()}});
            return list;
        };
        const auto names = [](const QList<QJsonObject> &list, const char *type, const char *field) {
            QStringList values;
            for (const QJsonObject &object : list) {
                values << (object["type"] == type ? QStringList(object[field].toString()) : QStringList());
            }
            return values.join(' ');
        };
        const auto code = [&](const QStringList &arguments) {
            return ask(arguments).last()["code"].toString();
        };
        QCOMPARE(code({"restore"}), "NothingSaved");
        QCOMPARE(code({"save", "--module", "None"}), "ModulesUnknown");
        const QList<QJsonObject> save = ask({"save", "--priority", "high"});
        const QJsonObject end = save.last();
        QCOMPARE(end["job"].toInt(), save.value(1)["job"].toInt());
        QCOMPARE(names(save, "started", "operation") + " " + end["code"].toString(), "save Success");
        QCOMPARE(end["changes"].toArray().at(0).toObject()["item"].toString(), "a.txt");
        QVERIFY(names(save, "progress", "phase").startsWith("connecting"));
        QCOMPARE(code({"save"}), "Success");
        QCOMPARE(names(ask({"list"}), "item", "item"), "a.txt b.txt");
        QCOMPARE(run({"list", "--modules"}), "0\nA\n");
        device->writeData("A", "a.txt", "changed");
        QCOMPARE(names(ask({"preview"}), "preview", "action"), "replace same");
        QCOMPARE(code({"restore", "--dry-run"}), "Success");
        QCOMPARE(device->readData("A", "a.txt"), "changed");
        QCOMPARE(code({"restore", "--module", "A"}), "Success");
        QCOMPARE(device->readData("A", "a.txt"), "a");
        QCOMPARE(code({"verify", "--full"}), "Success");
        device->write("media/repository/a.txt", "b");
        const QList<QJsonObject> damaged = ask({"verify", "--full"});
        QCOMPARE(damaged.first()["exit"].toInt(), 25);
        QCOMPARE(damaged.last()["failures"].toArray().at(0).toObject()["item"].toString(), "a.txt");
        QCOMPARE(code({"save", "--repair"}), "Success");
        QCOMPARE(device->entry("a.txt"), "a");
        const QJsonObject status = ask({"status"}).last();
        QCOMPARE(status["lastVerify"].toObject()["code"].toString(), "Damaged");
        QVERIFY(status["lastSave"].toObject()["job"].toInt() > end["job"].toInt());
        QCOMPARE(ask({"settings"}).last()["values"].toObject()["Schedule hour"].toString(), "3");
    }

    /// The page of a save, in a browser: no error, nothing fetched, its groups and times on it, names
    /// harmless.
    void page()
    {
        device->addModule("A", "<databases><database name='d'/></databases><files><file>dir</file></files>");
        device->sql("A", "d", "CREATE TABLE t(a)");
        for (int number = 0; number < 20; ++number) {
            device->writeData("A", QString("dir/%1<b><script>alert(1)").arg(number), "x");
        }
        QVERIFY(device->start());
        const QString file = device->path("page of saves.html");
        QCOMPARE(run({"monitor", "--html", device->path("none/page.html")}).left(1), "9");
        Terminal monitor(environment());
        monitor.start({"monitor", "--once", "--html", file});
        QVERIFY(monitor.shows("Watching"));
        QCOMPARE(run({"save"}).left(1), "0");
        QCOMPARE(monitor.end(), 0);
        QCOMPARE(QDir(device->path({})).entryList({"page*"}, QDir::Files | QDir::Hidden).size(), 1);
        const QString html = readFile(file);
        QVERIFY(!html.contains("<script") && !html.contains("<b>") && !html.contains("http"));
        const QString browser = QStandardPaths::findExecutable("chromium");
        if (browser.isEmpty()) {
            QSKIP("no chromium is installed");
        }
        QProcess process;
        process.start(browser,
                      {"--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                       "--disable-background-networking", "--disable-component-update", "--disable-sync",
                       "--user-data-dir=" + device->path("browser"), "--enable-logging=stderr", "--dump-dom",
                       QUrl::fromLocalFile(file).toString()});
        QVERIFY(process.waitForFinished(60000));
        const QString page = process.readAllStandardOutput();
        QVERIFY(!process.readAllStandardError().contains("CONSOLE"));
        QVERIFY(page.contains("<span>A</span>") && page.contains("Save, job 1"));
        static const QRegularExpression times("(<td>\\d\\.\\d{3}</td>){6}");
        QVERIFY2(times.match(page).hasMatch() && page.contains("<rect class=\"stage\""), qPrintable(page));
        QVERIFY(page.contains("0 same") && page.contains("21 changed") &&
                page.contains("0&lt;b&gt;&lt;script&gt;alert(1)"));
    }
};

QTEST_GUILESS_MAIN(tst_ctl)
#include "tst_ctl.moc"
