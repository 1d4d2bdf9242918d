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
        QVERIFY(run("startSaveOnRepository").toBool());
        QVERIFY(QFile::exists(server.store("odd++ü #1?%41.jpg")));
        change("damaged");
        QFile::remove(device->dataPath("A", "d.data"));
        run("startRestoreFromRepository");
        QVERIFY(holds("saved"));
        for (const QString &line : server.accessLog()) {
            QVERIFY2(line.section('\t', 5, 5).contains("device 0001"), qPrintable(line));
        }
    }

    void certificates_data()
    {
        // what is not as it should be, in which way, and what the service says
        columns<QString, QString, QString>("different", "value", "message");
        row("expired device", "CERT", "device-expired.pem", "Invalid local certificate (");
        row("device of the future", "CERT", "device-future.pem", "Invalid local certificate (");
        row("missing certificate", "CERT", "none.pem", "Could not open Ssl Certificate (");
        row("key of another kind", "CERT_PKEY", "device-ec.key", "Invalid local private key");
        row("missing key", "CERT_PKEY", "none.key", "Could not open Ssl Certificate PKEY (");
        row("one expired authority", "CA", "ca-mixed.pem", "Invalid CA Certificate");
        row("foreign server", "server", "server-foreign", "Request got");
        row("expired server", "server", "server-expired", "Request got");
        row("wrong name", "server", "server-wrongname", "Request got");
        row("no trust list", "STATUS", "NONE", "CTL is not deployed: abort backup operations.");
    }
    void certificates()
    {
        QFETCH(QString, different);
        QFETCH(QString, value);
        QFETCH(QString, message);
        QMap<QString, QString> names = {{different, value}};
        const NginxServer nginx(names.take("server").isEmpty() ? "server" : value);
        QVERIFY(nginx.isRunning());
        QFile::remove(device->path("data/dev_mode"));
        NginxServer::installTool(device->path(""), names);
        QVERIFY(start(nginx.url()));
        QVERIFY(!run("startSaveOnRepository").toBool());
        QVERIFY(device->wholeLog().contains(message));
        QVERIFY(QDir(nginx.store()).isEmpty());

        // With everything in order, the next save sets the connection up anew.
        NginxServer::installTool(device->path(""));
        QCOMPARE(run("startSaveOnRepository").toBool(), different != "server");
    }

    void toolThatDoesNotAnswer()
    {
        QVERIFY(start("https://127.0.0.1:1/save"));
        // The developer mode ends when the URL has been set already.
        QFile::remove(device->path("data/dev_mode"));
        for (const QByteArray script : {"", "exit 3", "echo SECURED"}) { // with a line feed
            if (!script.isEmpty()) {
                device->write("usr/bin/getVYXinfo", "#!/bin/sh\n" + script + "\n");
                QFile::setPermissions(device->path("usr/bin/getVYXinfo"), QFile::Permissions(0x7755));
            }
            QVERIFY(!run("startSaveOnRepository").toBool());
            QVERIFY(device->hasLogged("CTL is not deployed: abort backup operations."));
        }
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
