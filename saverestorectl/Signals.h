#pragma once

#include <QObject>

class QCoreApplication;

/// The signals that the command answers, as events: to end (SIGINT, SIGTERM), unless whoever started it has
/// them ignored, and that the terminal has another size.
class Signals : public QObject
{
    Q_OBJECT

public:
    /// To be made before any thread is: all of them leave the signals to this object.
    Signals();
    ~Signals() override;
    Signals(const Signals &) = delete;
    Signals &operator=(const Signals &) = delete;

    /// Tell of them from now on, as long as there is the application.
    void start(QCoreApplication *application);

Q_SIGNALS:
    void interrupted(int number);
    void resized();

private:
    void read();

    int descriptor;
};
