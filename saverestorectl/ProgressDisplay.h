#pragma once

#include <QElapsedTimer>
#include <QString>
#include <QTimer>

class Output;
class ServiceConnection;

/// Shows how far a job is: a bar on a terminal, else a line for each change of phase or modules and each
/// tenth, in JSON an object for each change.
class ProgressDisplay
{
public:
    ProgressDisplay(const ServiceConnection &service, Output &output);

    /// Show the job as it is now.
    void update();
    /// The same, for a terminal that has another size.
    void redraw();
    /// The job has ended. The next one is shown from its begin.
    void end();

private:
    void drawBar();
    void printChange();
    QString bar(int width) const;
    QString timeLeft() const;
    QString rate();
    /// What is going on, without numbers.
    QString stage() const;

    const ServiceConnection &service;
    Output &output;
    QTimer everySecond;
    QElapsedTimer sinceBegin;
    double progressAtBegin = 0;
    QElapsedTimer sinceBytes;
    QString stageOfBytes;
    quint64 bytesAtBegin = 0;
    quint32 job = 0;
    QString shownStage;
    double shownProgress = -1;
};
