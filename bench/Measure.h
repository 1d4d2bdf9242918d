#pragma once

#include <QList>
#include <QString>

#include <optional>

class TestDevice;

/// What one operation has cost, or the median of several.
struct Cost
{
    double seconds = 0;   ///< wall clock
    double processor = 0; ///< seconds, children included
    double pause = 0;     ///< milliseconds that a module was stopped: the median of all modules
    double longestPause = 0;
    double silence = 0;  ///< milliseconds that the longest answer on the bus took
    double children = 0; ///< programs started
    double written = 0;  ///< kB to the disk
    double memory = 0;   ///< kB that the service had at most
};

/// The median of each figure, the most of memory, silence and the longest pause.
Cost medianOf(const QList<Cost> &costs);
double medianOf(QList<double> values);

/// Measures a service that was started by `startService` of this object.
class Measure
{
public:
    explicit Measure(TestDevice &device) : device(device) {}

    /// Start the release build's service, counted. False when it does not come up.
    bool startService();

    /// Run an operation to its end. Nothing when it says that it failed.
    std::optional<Cost> run(const QString &method);

private:
    struct Counters
    {
        double processor = 0;
        qint64 written = 0;
        qint64 children = 0;
        qsizetype log = 0;
    };
    Counters counters() const;
    QByteArray status(const QString &file) const;
    QList<double> pausesSince(qsizetype position) const;

    TestDevice &device;
};
