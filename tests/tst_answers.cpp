#include "tests/support/OperationTest.h"

/// The service answers at once, however large the data are that it works on.
class tst_answers : public OperationTest
{
    Q_OBJECT

    QByteArray content() const
    {
        return device->sql("Big", "d", "SELECT count(*), sum(id), sum(length(v)) FROM t") +
               TestDevice::shell("md5sum <" + device->dataPath("Big", "f"));
    }

    /// Run a method and ask for the settings again and again meanwhile: no answer takes long.
    void runAndAsk(const QString &method)
    {
        int asked = 0;
        qint64 longestMs = 0;
        const QDBusPendingCall run = device->callLater(method);
        while (!run.isFinished()) {
            QElapsedTimer clock;
            clock.start();
            QVERIFY(!device->result("printSettings").isNull());
            longestMs = std::max(longestMs, clock.elapsed());
            ++asked;
            QTest::qWait(10);
        }
        qInfo("%s: %d answers within %lld ms", qPrintable(method), asked, longestMs);
        QVERIFY(!run.isError() && asked >= 50 && longestMs < 250);
    }

private Q_SLOTS:
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
