#include "tests/support/DataTable.h"
#include "tests/support/TestDevice.h"

#include <QJsonDocument>
#include <QJsonObject>

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
};

QTEST_GUILESS_MAIN(tst_ctl)
#include "tst_ctl.moc"
