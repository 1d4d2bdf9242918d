#pragma once

#include "outcome/OperationSummary.h"

#include <QElapsedTimer>
#include <QStringList>

#include <atomic>
#include <functional>

/// Where an operation is, and what has become of its items: written by the operation, read by whoever
/// watches.
///
/// Main thread only, but for `advance`.
class OperationReport
{
public:
    enum class Operation { Save, Restore, Reset, Verify };
    enum class Phase {
        Connecting,
        Reading,
        Copying,
        Staging,
        Comparing,
        Sending,
        Restoring,
        Migrating,
        Checking,
        Finishing,
        Resetting,
    };
    enum class Step { Asked, Paused, Copied, Resumed, Staged, Sent };

    OperationReport(Operation operation, quint32 job);
    OperationReport(const OperationReport &) = delete;
    OperationReport &operator=(const OperationReport &) = delete;

    /// Nothing is to be changed.
    void setDryRun() { made.dryRun = true; }

    /// Begin a phase in which so many bytes are to be dealt with, as far as that is known. An operation goes
    /// through its phases in one order; one that it is beyond already does not begin again.
    void enter(Phase phase, quint64 bytes = 0);
    /// So many of the phase's bytes have been dealt with. May be called in any thread.
    void advance(quint64 bytes) { advanced += bytes; }
    /// Bytes of the phase that are under way, for as long as the phase lasts.
    void meterBy(std::function<quint64()> bytesMoved) { meter = std::move(bytesMoved); }
    /// Whose turn it is.
    void setModules(const QStringList &names) { current = names; }
    /// A step of the group that has these modules.
    void note(const QStringList &group, Step step);
    /// A step of the groups with that module, once more if they had it already.
    void noteModule(const QString &module, Step step);
    /// The groups with a step so far.
    const QList<GroupTimes> &groups() const { return made.groups; }

    void noteDone(const ItemChange &change);
    /// What was looked at and is in order.
    void noteSound(quint64 bytes) { count(made.done, bytes); }
    void noteSkipped(quint64 bytes = 0) { count(made.skipped, bytes); }
    void noteFailed(const FailedItem &item, quint64 bytes = 0);
    void setLeftOver(const QStringList &entries) { made.leftOver = entries.mid(0, made.mostLeftOver); }

    /// The operation ends with this code; the first that is no success stays. An empty text is the code's
    /// own.
    void end(Outcome::Code code, const QString &text = {});
    /// The end of an operation that went through: without any code, failed items make it `Partial`.
    OperationSummary finish();

    quint32 job() const { return made.job; }
    QString operationName() const { return made.operation; }
    QString phaseName() const;
    QString modulesText() const { return current.join(' '); }
    Outcome::Code code() const { return made.code; }
    bool hasFailures() const { return made.failed.items > 0; }
    /// Of the phase's bytes, how many have been dealt with, and how many there are; 0 and 0 where that is not
    /// known.
    quint64 phaseBytesDone() const;
    quint64 phaseBytes() const { return expected; }
    /// 0 to 1; never goes back.
    double progress();

private:
    static void count(ItemCount &counted, quint64 bytes);
    double seconds() const { return static_cast<double>(timer.nsecsElapsed()) / 1e9; }

    const Operation operation;
    OperationSummary made;
    QElapsedTimer timer;
    Phase phase = Phase::Connecting;
    quint64 expected = 0; ///< bytes of the phase
    std::atomic<quint64> advanced = 0;
    std::function<quint64()> meter;
    double shown = 0;
    QStringList current;
};
