#include "device/scheduler/ScheduleMatcher.h"
#include "device/scheduler/TaskStore.h"

#include <QTemporaryDir>
#include <QTest>

class tst_device : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void occurrences_data()
    {
        QTest::addColumn<QList<int>>("minutes");
        QTest::addColumn<QList<int>>("hours");
        QTest::addColumn<QString>("after");
        QTest::addColumn<QString>("next");
        QTest::newRow("today") << QList<int>{4} << QList<int>{3} << "2026-03-01T01:00:00"
                               << "2026-03-01T03:04:00";
        QTest::newRow("tomorrow") << QList<int>{4} << QList<int>{3} << "2026-12-31T03:04:00"
                                  << "2027-01-01T03:04:00";
        QTest::newRow("24 is midnight") << QList<int>{0} << QList<int>{24} << "2026-03-01T10:00:00"
                                        << "2026-03-02T00:00:00";
        QTest::newRow("unordered") << QList<int>{1} << QList<int>{11, 17, 23, 5} << "2026-03-01T23:30:00"
                                   << "2026-03-02T05:01:00";
        QTest::newRow("any minute") << QList<int>{} << QList<int>{} << "2026-03-01T10:00:30"
                                    << "2026-03-01T10:01:00";
        QTest::newRow("never") << QList<int>{61} << QList<int>{} << "2026-03-01T10:00:30"
                               << "";
    }
    void occurrences()
    {
        QFETCH(QList<int>, minutes);
        QFETCH(QList<int>, hours);
        QFETCH(QString, after);
        QFETCH(QString, next);
        TimePattern pattern;
        pattern.minutes = minutes;
        pattern.hours = hours;
        QCOMPARE(nextOccurrence(pattern, QDateTime::fromString(after, Qt::ISODate)),
                 QDateTime::fromString(next, Qt::ISODate));
    }

    void taskIdsAreNeverUsedAgain()
    {
        const QTemporaryDir directory;
        const QString path = directory.filePath("tasks");
        ScheduledTask task;
        task.module = "M";
        task.method = "m";
        task.pattern.hours = {24, 3};
        task.start = QDateTime::currentDateTime();
        {
            TaskStore store(path);
            QVERIFY(store.load());
            QCOMPARE(store.add(task), 1);
            QCOMPARE(store.add(task), 2);
            QVERIFY(store.remove(2));
            QVERIFY(store.remove(99));
        }
        TaskStore store(path);
        QVERIFY(store.load());
        QCOMPARE(store.getTasks().size(), 1);
        QCOMPARE(store.getTasks().first().pattern, task.pattern);
        QCOMPARE(store.add(task), 3);
        QVERIFY(store.removeByModule("M"));
        QCOMPARE(store.add(task), 4);
    }
};

QTEST_GUILESS_MAIN(tst_device)
#include "tst_device.moc"
