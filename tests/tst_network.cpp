#include "tests/support/Cutter.h"
#include "tests/support/NginxServer.h"
#include "tests/support/OperationTest.h"
#include "tests/support/Promises.h"

#include <QElapsedTimer>
#include <QUrl>

#include <optional>

/// Saves and restores whose server, or the line to it, fails in every phase: what the repository promises it
/// holds, and the next undisturbed operation brings everything into order.
class tst_network : public OperationTest
{
    Q_OBJECT

    std::optional<NginxServer> nginx;
    std::unique_ptr<Cutter> line;

    void addModules() const
    {
        device->addModule("A",
                          "<databases><database name='d'><dependency>B</dependency></database></databases>"
                          "<files><file>dir</file><file zip='true'>z</file></files>");
        device->addModule("B", "<files><file>plain</file><file priority='low'>low</file></files>");
    }

    void changeData(const QByteArray &content) const
    {
        for (const char *item : {"dir/a", "dir/b", "z/x", "z/y"}) {
            device->writeData("A", item, content + item);
        }
        write("B", {"plain", "low"}, content);
        device->writeData("B", "plain", content.repeated(20000));
        device->sql("A", "d",
                    "CREATE TABLE IF NOT EXISTS t(k INTEGER PRIMARY KEY, v); REPLACE INTO t VALUES(1, '" +
                        QString::fromUtf8(content) + "')");
    }

    QByteArray data() const
    {
        return device->readData("A", "dir/a") + device->readData("A", "dir/b") +
               device->readData("A", "z/x") + device->readData("B", "plain").left(10) +
               device->readData("B", "low") + device->sql("A", "d", "SELECT v FROM t");
    }

    bool startBehindLine(const QString &protocol, const QByteArray &directives = {})
    {
        nginx.emplace("server", protocol, directives);
        line = std::make_unique<Cutter>(quint16(QUrl(nginx->url()).port()));
        NginxServer::installTool(device->path({}));
        addModules();
        changeData("old");
        device->writeSettings("2", QString("https://127.0.0.1:%1/save").arg(line->port()));
        device->listen({"show_popup"}, store.get(), [this](const VYXEvent &event) { popUps << event; });
        return device->start() && save() && popUps.isEmpty();
    }

    Files held() const { return filesBelow(nginx->store()); }

    /// An undisturbed save and restore after what has failed.
    bool isInOrder(const QByteArray &content)
    {
        const bool saved = save() && popUps.isEmpty();
        const QByteArray wanted = data();
        changeData("damaged");
        restore();
        return saved && popUps.isEmpty() && data() == wanted && wanted.contains(content) &&
               device->allRun({"A", "B"});
    }

    qint64 bytesOf(const QString &method)
    {
        line->breakAfter(-1);
        run(method);
        return line->bytes();
    }

private Q_SLOTS:
    void initTestCase() { qputenv("SERVER_SILENCE_MS", "1500"); }

    void lineThatBreaks_data()
    {
        columns<QString, bool>("protocol", "once");
        row("HTTP/1.1", QString("http1"), true);
        row("HTTP/1.1, again and again", QString("http1"), false);
        row("HTTP/2", QString("http2"), true);
        row("HTTP/2, again and again", QString("http2"), false);
    }
    void lineThatBreaks()
    {
        QFETCH(QString, protocol);
        QFETCH(bool, once);
        constexpr int steps = 5;
        const auto way = once ? Cutter::Once : Cutter::Always;
        QVERIFY(startBehindLine(protocol));
        changeData("first");
        const qint64 saved = bytesOf("startSaveOnRepository");
        changeData("damaged");
        const qint64 restored = bytesOf("startRestoreFromRepository");
        QVERIFY(saved > 1000 && restored > 1000 && data().contains("first"));
        for (int step = 0; step < steps; ++step) {
            const QByteArray content = "new" + QByteArray::number(step);
            changeData(content);
            line->breakAfter(saved * step / steps + step, way);
            run("startSaveOnRepository");
            QCOMPARE(untrueLine(held()), QString());
            line->breakAfter(-1);
            QVERIFY2(isInOrder(content), content.constData());

            changeData("damaged");
            line->breakAfter(restored * step / steps + step, way);
            restore();
            line->breakAfter(-1);
            restore();
            QVERIFY2(data().contains(content) && !data().contains("damaged"), content.constData());
        }
    }

    void connectionsThatEnd_data()
    {
        columns<QString, int>("protocol", "requests");
        for (const int requests : {1, 5}) {
            QTest::addRow("HTTP/2, %d", requests) << "http2" << requests;
            QTest::addRow("HTTP/1.1, %d", requests) << "http1" << requests;
        }
    }
    /// As a server ends them after so many requests: nobody notices.
    void connectionsThatEnd()
    {
        QFETCH(QString, protocol);
        QFETCH(int, requests);
        QVERIFY(startBehindLine(protocol, "keepalive_requests " + QByteArray::number(requests) + ";"));
        for (const QByteArray content : {"one", "two"}) {
            changeData(content);
            QVERIFY(isInOrder(content));
        }
    }

    void requestsThatFail_data()
    {
        columns<int, int>("behaviour", "status");
        row("503", int(StoreServer::Fail), 503);
        row("500", int(StoreServer::Fail), 500);
        row("closes", int(StoreServer::Close), 0);
    }
    /// Each in turn.
    void requestsThatFail()
    {
        QFETCH(int, behaviour);
        QFETCH(int, status);
        addModules();
        changeData("old");
        QVERIFY(OperationTest::start() && save());
        store->failStatus = status;
        changeData("undisturbed");
        store->requests.clear();
        QVERIFY(save());
        const qsizetype most = store->requests.size();
        QVERIFY(most > 15);
        for (qsizetype number = 1; number <= most; ++number) {
            const QByteArray content = "new" + QByteArray::number(number);
            changeData(content);
            store->requests.clear();
            store->behaviour = [&, struck = QString()](int, const QString &method,
                                                       const QString &entry) mutable {
                const QString request = method + entry;
                struck = store->requests.size() == number ? request : struck;
                return request == struck ? StoreServer::Behaviour(behaviour) : StoreServer::Proper;
            };
            save();
            const QString struck = store->requests.value(number - 1);
            store->behaviour = {};
            QVERIFY2(untrueLine(store->entries).isEmpty(), qPrintable(struck));
            QVERIFY2(isInOrder(content), qPrintable(struck));
        }
    }

    void serverThatFallsSilent_data()
    {
        columns<QString, int>("method", "percent");
        for (const int percent : {10, 60}) {
            QTest::addRow("save, %d %%", percent) << "startSaveOnRepository" << percent;
            QTest::addRow("restore, %d %%", percent) << "startRestoreFromRepository" << percent;
        }
    }
    void serverThatFallsSilent()
    {
        QFETCH(QString, method);
        QFETCH(int, percent);
        QVERIFY(startBehindLine("http2"));
        changeData("new");
        const qint64 bytes = bytesOf(method);
        changeData("newer");
        QElapsedTimer timer;
        timer.start();
        line->breakAfter(bytes * percent / 100, Cutter::Silent);
        run(method);
        QVERIFY2(timer.elapsed() < 3 * 1500, qPrintable(QString::number(timer.elapsed())));
        QVERIFY(device->allRun({"A", "B"}) && popUps.size() <= 2 && !popUps.isEmpty());
        QCOMPARE(untrueLine(held()), QString());
        line->breakAfter(-1);
        QVERIFY(isInOrder({}));
    }
};

QTEST_GUILESS_MAIN(tst_network)
#include "tst_network.moc"
