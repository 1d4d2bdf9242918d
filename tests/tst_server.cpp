#include "tests/support/DataTable.h"
#include "tests/support/NginxServer.h"
#include "tests/support/StoreServer.h"
#include "tests/support/TestDevice.h"

/// The service with its repository on a server.
class tst_server : public QObject
{
    Q_OBJECT

    std::unique_ptr<TestDevice> device;
    const QStringList files = {"f", "odd/ü #1?%41.jpg", "conf/logs/x"};

    void change(const QByteArray &text) const
    {
        device->sql("A", "d", QString("UPDATE t SET v='%1'").arg(QString::fromUtf8(text)));
        for (const QString &item : files) {
            device->writeData("A", item, text);
        }
    }

    bool holds(const QByteArray &text) const
    {
        return device->sql("A", "d", "SELECT v FROM t") == text + "\n" &&
               std::all_of(files.cbegin(), files.cend(),
                           [&](const QString &file) { return device->readData("A", file) == text; });
    }

    /// Run an operation while events of this process, and so its servers, go on.
    QVariant run(const QString &method) const
    {
        device->markLog();
        return TestDevice::resultOf(device->callLater(method));
    }

    bool start(const QString &url)
    {
        device->writeSettings("2", url);
        return device->start();
    }

private Q_SLOTS:
    void init()
    {
        device = std::make_unique<TestDevice>();
        device->addModule("A",
                          "<databases><database name='d'/></databases><files><file>f</file><file>odd</file>"
                          "<file zip='true'>conf/logs</file></files>");
        device->sql("A", "d", "CREATE TABLE t(v); INSERT INTO t VALUES('')");
        change("saved");
    }
    void cleanup() { QCOMPARE(TestDevice::retire(device), QString()); }

    void secureStory()
    {
        const NginxServer server("server");
        QVERIFY(server.isRunning());
        QFile::remove(device->path("data/dev_mode"));
        NginxServer::installTool(device->path(""));
        QVERIFY(start(server.url()));
        QVERIFY(device->hasLogged("info VYXSaveRestore: Encrypt connection to '127.0.0.1'"));
        QVERIFY(run("startSaveOnRepository").toBool());
        QVERIFY(QFile::exists(server.store("odd++ü #1?%41.jpg")));
        change("later");
        QVERIFY(run("startSaveOnRepository").toBool());
        QVERIFY(!device->hasLogged("Error while uploading files"));
        QVERIFY(run("startSaveOnRepository").toBool());
        QCOMPARE(device->logged("PUT '").size(), 3); // version file, modules list, checksum file
        change("damaged");
        QFile::remove(device->dataPath("A", "d.data"));
        run("startRestoreFromRepository");
        QVERIFY(holds("later"));
        QVERIFY(!device->hasLogged("error VYXSaveRestore: Error ["));

        double lastEnd = 0;
        for (const QString &line : server.accessLog()) {
            const QStringList fields = line.split('\t');
            QVERIFY2(fields.value(5).contains("device 0001"), qPrintable(line));
            const double end = fields.at(0).toDouble();
            QVERIFY2(end - fields.at(1).toDouble() >= lastEnd - 0.002, qPrintable(line));
            lastEnd = end;
        }
    }

    void certificates_data()
    {
        // what is not as it should be, in which way, and what the service says
        columns<QString, QString, QString>("different", "value", "message");
        row("expired device", "cert", "device-expired.pem", "Invalid local certificate (");
        row("device of the future", "cert", "device-future.pem", "Invalid local certificate (");
        row("missing certificate", "cert", "none.pem", "Could not open Ssl Certificate (");
        row("key of another kind", "key", "device-ec.key", "Invalid local private key");
        row("missing key", "key", "none.key", "Could not open Ssl Certificate PKEY (");
        row("one expired authority", "authorities", "ca-mixed.pem", "Invalid CA Certificate");
        row("foreign device", "cert", "foreign-device.pem", "Connection to repository failed (");
        row("foreign server", "server", "server-foreign", "Request got");
        row("expired server", "server", "server-expired", "Request got");
        row("wrong name", "server", "server-wrongname", "Request got");
        row("no trust list", "status", "NONE", "CTL is not deployed: abort backup operations.");
    }
    void certificates()
    {
        QFETCH(QString, different);
        QFETCH(QString, value);
        QFETCH(QString, message);
        const auto given = [&](const char *what, const char *usual) {
            return different == what ? value : usual;
        };
        const QString server = given("server", "server");
        const QString certificate = given("cert", "device.pem");
        const bool foreign = certificate == "foreign-device.pem";
        const QString key = foreign ? "foreign-device.key" : given("key", "device.key");
        const QString authorities = given("authorities", "ca.pem");
        const QString status = given("status", "SECURED");
        const NginxServer nginx(server);
        QVERIFY(nginx.isRunning());
        QFile::remove(device->path("data/dev_mode"));
        NginxServer::installTool(device->path(""), certificate, key, authorities, status);
        QVERIFY(start(nginx.url()));
        QVERIFY(!run("startSaveOnRepository").toBool());
        QVERIFY(device->wholeLog().contains(message));
        QVERIFY(QDir(nginx.store()).isEmpty());
        QVERIFY(holds("saved"));

        // With everything in order, the next save sets the connection up anew.
        if (server == "server") {
            NginxServer::installTool(device->path(""));
            QVERIFY(run("startSaveOnRepository").toBool() || foreign);
        }
    }

    void tools_data()
    {
        columns<QString>("script");
        row("missing", "");
        row("fails", "exit 3");
        row("prints a line feed", "echo SECURED");
    }
    void tools()
    {
        QFETCH(QString, script);
        if (!script.isEmpty()) {
            device->write("usr/bin/getVYXinfo", ("#!/bin/sh\n" + script + "\n").toUtf8());
            QFile::setPermissions(device->path("usr/bin/getVYXinfo"), QFile::Permissions(0x7755));
        }
        QVERIFY(start("https://127.0.0.1:1/save"));
        // The developer mode ends when the URL has been set already.
        QFile::remove(device->path("data/dev_mode"));
        QVERIFY(!run("startSaveOnRepository").toBool());
        QVERIFY(device->hasLogged("CTL is not deployed: abort backup operations."));
        QCOMPARE(device->hasLogged("warning VYXSaveRestore: The question 'PKI STATUS DM' to "),
                 script != "echo SECURED");
    }

    void everyNthRequestFails()
    {
        StoreServer store;
        QVERIFY(start(store.url()));
        QVERIFY(run("startSaveOnRepository").toBool());
        const auto failEvery = [&](int nth, StoreServer::Behaviour failure) {
            const qsizetype first = store.requests.size();
            store.behaviour = [=](int number, const QString &, const QString &) {
                return (number - first) % nth == 0 ? failure : StoreServer::Proper;
            };
        };
        for (int nth = 1; nth < 40; nth += nth < 8 ? 1 : 4) {
            const QByteArray saved = "round " + QByteArray::number(nth);
            change(saved);
            failEvery(nth, nth % 2 == 0 ? StoreServer::Close : StoreServer::Fail);
            run("startSaveOnRepository");
            QVERIFY(holds(saved));
            store.behaviour = nullptr;
            QVERIFY(run("startSaveOnRepository").toBool());
            QVERIFY(store.entries.value("f") == saved);

            change("damaged");
            failEvery(nth, StoreServer::Fail);
            run("startRestoreFromRepository");
            store.behaviour = nullptr;
            run("startRestoreFromRepository");
            QVERIFY2(holds(saved), qPrintable(device->wholeLog()));
        }
        QCOMPARE(store.entries.keys(),
                 QStringList({"A++conf++logs.tar.gz", "A++d.dump.gz", "A.cksum", "A.version", "f",
                              "modules-list.sav", "odd++ü #1?%41.jpg"}));
        QVERIFY(!store.overlapped);
    }

    void userInformationIsNotLogged()
    {
        StoreServer store;
        QVERIFY(start(store.url().replace("http://", "http://user:secret@")));
        QVERIFY(run("startSaveOnRepository").toBool());
        store.behaviour = [](int, const QString &, const QString &) { return StoreServer::Fail; };
        QVERIFY(!run("startSaveOnRepository").toBool());
        QVERIFY(device->hasLogged("Connection to repository failed (http://127.0.0.1"));
        QVERIFY(!device->wholeLog().contains("secret"));
    }
};

QTEST_GUILESS_MAIN(tst_server)
#include "tst_server.moc"
