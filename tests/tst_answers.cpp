#include "tests/support/TestDevice.h"

#include <QDBusPendingCallWatcher>
#include <QTest>
#include <QTimer>

/// The service answers at once, however large the data are that it works on.
class tst_answers : public QObject
{
    Q_OBJECT

    std::unique_ptr<TestDevice> device = std::make_unique<TestDevice>();

    QByteArray content() const
    {
        return device->sql("Big", "d", "SELECT count(*), sum(id), sum(length(v)) FROM t") +
               TestDevice::shell("md5sum <" + device->dataPath("Big", "f"));
    }

    /// Run a method and ask for the settings every 20 ms meanwhile: no answer takes long.
    void runAndAsk(const QString &method)
    {
        int asked = 0;
        int answered = 0;
        qint64 longestMs = 0;
        QElapsedTimer clock;
        clock.start();
        QTimer timer;
        connect(&timer, &QTimer::timeout, &timer, [&] {
            ++asked;
            auto *answer = new QDBusPendingCallWatcher(device->callLater("printSettings"), &timer);
            connect(answer, &QDBusPendingCallWatcher::finished, &timer, [&, answer, sent = clock.elapsed()] {
                answered += answer->isError() ? 0 : 1;
                longestMs = std::max(longestMs, clock.elapsed() - sent);
            });
        });
        timer.start(20);
        QEventLoop loop;
        const QDBusPendingCallWatcher run(device->callLater(method));
        connect(&run, &QDBusPendingCallWatcher::finished, &loop, &QEventLoop::quit);
        loop.exec();
        timer.stop();
        QVERIFY(TestDevice::waitUntil([&] { return answered == asked; }));
        qInfo("%s: %lld ms, %d answers within %lld ms", qPrintable(method), clock.elapsed(), asked,
              longestMs);
        QVERIFY(!run.isError() && asked >= 50 && longestMs < 250);
    }

private Q_SLOTS:
    void cleanup() { QCOMPARE(TestDevice::retire(device), QString()); }

    void whileLargeDataMove()
    {
        device->addModule("Big", "<files><file priority='normal'>f</file></files>"
                                 "<databases><database name='d'/></databases>");
        TestDevice::shell("head -c 200000000 /dev/urandom >" + device->dataPath("Big", "f"));
        device->sql("Big", "d",
                    "CREATE TABLE t(id INTEGER PRIMARY KEY, v TEXT);"
                    "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 40000)"
                    "INSERT INTO t SELECT i, hex(randomblob(200)) || printf('%.4600c', 'a') FROM n");
        const QByteArray whole = content();
        QVERIFY2(whole.startsWith("40000|800020000|200000000\n"), whole);
        QVERIFY(device->start());
        runAndAsk("startSaveOnRepository");
        device->sql("Big", "d", "DELETE FROM t WHERE id % 2");
        device->writeData("Big", "f", {});
        QVERIFY(content().startsWith("20000|400020000|"));
        runAndAsk("startRestoreFromRepository");
        QCOMPARE(content(), whole);
    }
};

QTEST_GUILESS_MAIN(tst_answers)
#include "tst_answers.moc"
