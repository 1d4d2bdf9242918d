#include "device/scheduler/ScheduleMatcher.h"

#include <QTest>

class tst_device : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void occurrences()
    {
        struct Case
        {
            const char *name;
            QList<int> minutes, hours;
            QString after, next;
        };
        const QList<Case> cases = {
            {"today", {4}, {3}, "2026-03-01T01:00:00", "2026-03-01T03:04:00"},
            {"tomorrow", {4}, {3}, "2026-12-31T03:04:00", "2027-01-01T03:04:00"},
            {"24 is midnight", {0}, {24}, "2026-03-01T10:00:00", "2026-03-02T00:00:00"},
            {"unordered", {1}, {11, 17, 23, 5}, "2026-03-01T23:30:00", "2026-03-02T05:01:00"},
            {"any minute", {}, {}, "2026-03-01T10:00:30", "2026-03-01T10:01:00"},
            {"never", {61}, {}, "2026-03-01T10:00:30", ""}};
        for (const auto &[name, minutes, hours, after, next] : cases) {
            TimePattern pattern;
            pattern.minutes = minutes;
            pattern.hours = hours;
            const QDateTime found = nextOccurrence(pattern, QDateTime::fromString(after, Qt::ISODate));
            QVERIFY2(found == QDateTime::fromString(next, Qt::ISODate),
                     qPrintable(QString("%1: %2").arg(name, found.toString(Qt::ISODate))));
        }
    }
};

QTEST_GUILESS_MAIN(tst_device)
#include "tst_device.moc"
