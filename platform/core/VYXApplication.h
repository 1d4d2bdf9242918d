#pragma once

#include <QCoreApplication>

class QSocketNotifier;

/// The application object of a middleware process.
///
/// SIGTERM and SIGINT ask the process to end: `aboutToStop` is emitted, then the event loop ends with status
/// 0. Whoever waits in a nested loop looks at `isEnding`, which is true from the moment the signal arrived.
class VYXApplication : public QCoreApplication
{
    Q_OBJECT

public:
    VYXApplication(int &argc, char **argv);
    ~VYXApplication() override;

    VYXApplication(const VYXApplication &) = delete;
    VYXApplication &operator=(const VYXApplication &) = delete;

    /// True once the process was asked to end; stays true.
    static bool isEnding();

    /// Ask the process to end, as the signals do; the first exit status that is given counts. Safe in a
    /// signal handler.
    static void requestEnd(int exitStatus = 0);

Q_SIGNALS:
    void aboutToStop();

private:
    void endRequested();

    QSocketNotifier *notifier = nullptr;
};
