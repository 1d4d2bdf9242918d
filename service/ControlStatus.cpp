#include "service/ControlStatus.h"

#include "platform/core/VYXModule.h"
#include "service/OperationSlot.h"

#include <QDBusConnection>
#include <QDBusMessage>

#include <utility>

using namespace std::chrono_literals;

namespace {

constexpr auto tellPeriod = 100ms;
const char *const controlInterface = "com.corvane.Pelorin.SaveRestoreControl1";

/// The name of the property that has the summary of the last operation of a kind.
QByteArray lastProperty(const QString &operation)
{
    QByteArray name = operation.toLatin1();
    name[0] = static_cast<char>(std::toupper(name[0]));
    return "Last" + name;
}

} // namespace

ControlStatus::ControlStatus(VYXModule &module, OperationSlot &operations)
    : module(module), operations(operations)
{
    turn.setInterval(tellPeriod);
    connect(&turn, &QTimer::timeout, this, &ControlStatus::showRunning);
    connect(&operations, &OperationSlot::began, this, [this] {
        showRunning();
        turn.start();
    });
    connect(&operations, &OperationSlot::ended, this, &ControlStatus::showEnded);
    module.setProperty("Version", SAVERESTORE_VERSION);
    module.setProperty("Operation", "none");
    module.setProperty("Job", 0U);
    module.setProperty("Phase", QString());
    module.setProperty("Progress", 0.0);
    module.setProperty("PhaseBytesDone", quint64{0});
    module.setProperty("PhaseBytes", quint64{0});
    module.setProperty("CurrentModule", QString());
    module.setProperty("Repository", QString());
    module.setProperty("NextSave", quint64{0});
    for (const char *operation : {"save", "restore", "verify"}) {
        module.setProperty(lastProperty(operation), QVariantMap());
    }
}

void ControlStatus::load()
{
    last.load();
    for (const char *operation : {"save", "restore", "verify"}) {
        if (const auto summary = last.last(operation)) {
            showLast(*summary);
        }
    }
    changed.clear();
}

void ControlStatus::showLast(const OperationSummary &summary)
{
    const QByteArray name = lastProperty(summary.operation);
    if (module.property(name).isValid()) {
        QVariantMap map = summary.toMap();
        map.insert("lastSuccess", last.lastSuccess(summary.operation));
        publish(name, map);
    }
}

void ControlStatus::setRepository(const QString &shownUrl)
{
    publish("Repository", shownUrl);
    tell();
}

void ControlStatus::setNextSave(const std::optional<QDateTime> &due)
{
    publish("NextSave", due ? static_cast<quint64>(due->toSecsSinceEpoch()) : quint64{0});
    tell();
}

void ControlStatus::showRunning()
{
    if (OperationReport *const report = operations.report()) {
        publish("Operation", report->operationName());
        publish("Job", report->job());
        publish("Phase", report->phaseName());
        publish("Progress", report->progress());
        publish("PhaseBytesDone", report->phaseBytesDone());
        publish("PhaseBytes", report->phaseBytes());
        publish("CurrentModule", report->modulesText());
        tell();
    }
}

void ControlStatus::showEnded(const std::optional<OperationSummary> &summary)
{
    turn.stop();
    publish("Operation", "none");
    publish("Job", 0U);
    publish("Phase", QString());
    publish("PhaseBytesDone", quint64{0});
    publish("PhaseBytes", quint64{0});
    publish("CurrentModule", QString());
    if (summary && Outcome::wentThrough(summary->code)) {
        publish("Progress", 1.0);
    }
    if (summary && !summary->dryRun) {
        last.keep(*summary);
        showLast(*summary);
    }
    tell();
}

void ControlStatus::publish(const char *name, const QVariant &value)
{
    if (module.property(name) != value) {
        module.setProperty(name, value);
        changed.insert(name, value);
    }
}

void ControlStatus::tell()
{
    if (changed.isEmpty()) {
        return;
    }
    QDBusMessage message = QDBusMessage::createSignal(VYXModule::objectPath(module.getModuleName()),
                                                      "org.freedesktop.DBus.Properties", "PropertiesChanged");
    message << QString(controlInterface) << std::exchange(changed, {}) << QStringList();
    QDBusConnection::systemBus().send(message);
}
