#include "outcome/OperationReport.h"

#include <QDateTime>

#include <algorithm>
#include <array>
#include <span>
#include <utility>

namespace {

/// Of one phase of an operation: at which part of the whole it begins, when each phase takes what it usually
/// takes.
struct PhaseBegin
{
    OperationReport::Phase phase;
    double at;
};

using Phase = OperationReport::Phase;

constexpr std::array savePhases = {PhaseBegin{Phase::Connecting, 0}, PhaseBegin{Phase::Reading, 0.01},
                                   PhaseBegin{Phase::Copying, 0.03}, PhaseBegin{Phase::Staging, 0.15},
                                   PhaseBegin{Phase::Sending, 0.40}, PhaseBegin{Phase::Finishing, 0.98}};
constexpr std::array restorePhases = {PhaseBegin{Phase::Connecting, 0}, PhaseBegin{Phase::Reading, 0.01},
                                      PhaseBegin{Phase::Comparing, 0.03}, PhaseBegin{Phase::Restoring, 0.25},
                                      PhaseBegin{Phase::Migrating, 0.98}};
constexpr std::array verifyPhases = {PhaseBegin{Phase::Connecting, 0}, PhaseBegin{Phase::Reading, 0.01},
                                     PhaseBegin{Phase::Checking, 0.05}};
constexpr std::array resetPhases = {PhaseBegin{Phase::Resetting, 0}};

std::span<const PhaseBegin> phasesOf(OperationReport::Operation operation)
{
    switch (operation) {
    case OperationReport::Operation::Save:
        return savePhases;
    case OperationReport::Operation::Restore:
        return restorePhases;
    case OperationReport::Operation::Verify:
        return verifyPhases;
    case OperationReport::Operation::Reset:
        break;
    }
    return resetPhases;
}

/// Where the phase begins and where the next one does.
std::pair<double, double> partOf(OperationReport::Operation operation, Phase phase)
{
    const std::span<const PhaseBegin> phases = phasesOf(operation);
    for (size_t number = 0; number < phases.size(); ++number) {
        if (phases[number].phase == phase) {
            return {phases[number].at, number + 1 < phases.size() ? phases[number + 1].at : 1.0};
        }
    }
    return {0.0, 1.0};
}

QString nameOf(OperationReport::Operation operation)
{
    constexpr std::array names = {"save", "restore", "reset", "verify"};
    return names.at(static_cast<size_t>(operation));
}

QString nameOf(OperationReport::Step step)
{
    constexpr std::array names = {"asked", "paused", "copied", "resumed", "staged", "sent"};
    return names.at(static_cast<size_t>(step));
}

} // namespace

OperationReport::OperationReport(Operation operation, quint32 job)
    : operation(operation), phase(operation == Operation::Reset ? Phase::Resetting : Phase::Connecting)
{
    made.job = job;
    made.operation = nameOf(operation);
    made.started = static_cast<quint64>(QDateTime::currentSecsSinceEpoch());
    timer.start();
}

void OperationReport::enter(Phase next, quint64 bytes)
{
    if (next == phase || partOf(operation, next).first < partOf(operation, phase).first) {
        return;
    }
    phase = next;
    expected = bytes;
    advanced = 0;
    meter = {};
    current.clear();
}

QString OperationReport::phaseName() const
{
    constexpr std::array names = {"connecting", "reading",   "copying",  "staging",   "comparing", "sending",
                                  "restoring",  "migrating", "checking", "finishing", "resetting"};
    return names.at(static_cast<size_t>(phase));
}

quint64 OperationReport::phaseBytesDone() const
{
    return std::min(expected, std::max<quint64>(advanced, meter ? meter() : 0));
}

double OperationReport::progress()
{
    const auto [from, to] = partOf(operation, phase);
    const double part =
        expected == 0 ? 0 : static_cast<double>(phaseBytesDone()) / static_cast<double>(expected);
    shown = std::max(shown, from + (to - from) * part);
    return shown;
}

void OperationReport::note(const QStringList &group, Step step)
{
    const auto found = std::ranges::find(made.groups, group, &GroupTimes::modules);
    if (found != made.groups.end()) {
        found->steps.insert(nameOf(step), seconds());
    } else if (made.groups.size() < OperationSummary::mostGroups) {
        made.groups << GroupTimes{group, {{nameOf(step), seconds()}}};
    }
}

void OperationReport::noteModule(const QString &module, Step step)
{
    for (GroupTimes &group : made.groups) {
        if (group.modules.contains(module)) {
            group.steps.insert(nameOf(step), seconds());
        }
    }
}

void OperationReport::count(ItemCount &counted, quint64 bytes)
{
    ++counted.items;
    counted.bytes += bytes;
}

void OperationReport::noteDone(const ItemChange &change)
{
    count(made.done, change.bytes);
    if (made.changes.size() < OperationSummary::mostChanges) {
        made.changes << change;
    }
}

void OperationReport::noteFailed(const FailedItem &item, quint64 bytes)
{
    count(made.failed, bytes);
    if (made.failedItems.size() < OperationSummary::mostFailed) {
        made.failedItems << item;
    }
}

void OperationReport::end(Outcome::Code code, const QString &text)
{
    if (made.code == Outcome::Code::Success) {
        made.code = code;
        made.text = text.isEmpty() ? Outcome::text(code) : text;
    }
}

OperationSummary OperationReport::finish()
{
    if (made.failed.items > 0) {
        end(Outcome::Code::Partial);
    }
    made.seconds = seconds();
    return made;
}
