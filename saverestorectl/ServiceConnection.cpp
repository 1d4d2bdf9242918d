#include "saverestorectl/ServiceConnection.h"

#include <QDBusArgument>
#include <QDBusConnectionInterface>
#include <QDBusPendingCallWatcher>
#include <QDBusServiceWatcher>

#include <algorithm>
#include <array>

namespace {

constexpr auto serviceName = "com.corvane.Pelorin.VYXSaveRestore";
constexpr auto objectPath = "/com/corvane/Pelorin/VYXSaveRestore";
constexpr auto controlInterface = "com.corvane.Pelorin.SaveRestoreControl1";
constexpr auto moduleInterface = "com.corvane.Pelorin.VYXInterface";
constexpr auto propertiesInterface = "org.freedesktop.DBus.Properties";
constexpr auto errorPrefix = "com.corvane.Pelorin.Error.";
/// What a repository on a server may take to be listed.
constexpr int callLimitMs = 180000;

struct BusFault
{
    const char *name;
    int status;
    const char *code;
    const char *text;
};

/// What the bus and its libraries say, by the end of the error's name.
constexpr std::array busFaults = {
    BusFault{"AccessDenied", ExitStatus::NotAllowed, "NotAllowed",
             "The bus does not allow you to call the service: only root and the group vyxapplication may"},
    BusFault{"ServiceUnknown", ExitStatus::NoService, "NoService", "The service does not run"},
    BusFault{"NameHasNoOwner", ExitStatus::NoService, "NoService", "The service does not run"},
    BusFault{"UnknownMethod", ExitStatus::NoAnswer, "NoAnswer",
             "The service does not know what it is asked: it is of another version"},
    BusFault{"UnknownInterface", ExitStatus::NoAnswer, "NoAnswer",
             "The service does not know what it is asked: it is of another version"},
    BusFault{"UnknownObject", ExitStatus::NoAnswer, "NoAnswer",
             "The service does not know what it is asked: it is of another version"},
    BusFault{"NoReply", ExitStatus::NoAnswer, "NoAnswer", "The service does not answer"},
    BusFault{"Timeout", ExitStatus::NoAnswer, "NoAnswer", "The service does not answer"},
    BusFault{"TimedOut", ExitStatus::NoAnswer, "NoAnswer", "The service does not answer"},
    BusFault{"Disconnected", ExitStatus::NoBus, "NoBus", "The bus has gone"},
};

Failure failureOf(const QDBusMessage &error)
{
    const QString name = error.errorName();
    if (name.startsWith(errorPrefix)) {
        const QString code = name.mid(QString(errorPrefix).size());
        return {ExitStatus::ofCode(code), code, error.errorMessage()};
    }
    const QString end = name.section('.', -1);
    const auto *const known = std::find_if(busFaults.cbegin(), busFaults.cend(),
                                           [&](const BusFault &fault) { return end == fault.name; });
    return known == busFaults.cend()
               ? Failure{ExitStatus::Failed, "Failed", name + ": " + error.errorMessage()}
               : Failure{known->status, known->code, known->text};
}

} // namespace

ServiceConnection::ServiceConnection()
    : bus(QDBusConnection::connectToBus(QDBusConnection::SystemBus, "saverestorectl"))
{
}

std::optional<Failure> ServiceConnection::open()
{
    if (!bus.isConnected()) {
        return Failure{ExitStatus::NoBus, "NoBus", "There is no system bus: " + bus.lastError().message()};
    }
    watch();
    if (!bus.interface()->isServiceRegistered(serviceName)) {
        return Failure{ExitStatus::NoService, "NoService", "The service does not run"};
    }
    QDBusMessage ask = QDBusMessage::createMethodCall(serviceName, objectPath, propertiesInterface, "GetAll");
    ask << QString(controlInterface);
    ask.setAutoStartService(false);
    const Answer answer = answerTo(bus.call(ask));
    if (!answer.failure) {
        properties = toMap(answer.values.value(0));
    }
    return answer.failure;
}

void ServiceConnection::watch()
{
    auto *const watcher =
        new QDBusServiceWatcher(serviceName, bus, QDBusServiceWatcher::WatchForOwnerChange, this);
    connect(watcher, &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString &, const QString &old, const QString &) {
                if (!old.isEmpty()) {
                    Q_EMIT vanished("The service has gone");
                }
            });
    bus.connect(serviceName, objectPath, propertiesInterface, "PropertiesChanged", this,
                SLOT(takeChanges(QDBusMessage)));
    bus.connect(serviceName, objectPath, controlInterface, "Finished", this, SLOT(takeEnd(QDBusMessage)));
    bus.connect({}, "/org/freedesktop/DBus/Local", "org.freedesktop.DBus.Local", "Disconnected", this,
                SLOT(loseBus()));
}

void ServiceConnection::loseBus()
{
    Q_EMIT vanished("The bus has gone");
}

void ServiceConnection::takeChanges(const QDBusMessage &message)
{
    const QVariantList arguments = message.arguments();
    if (arguments.value(0) != controlInterface) {
        return;
    }
    const QVariantMap values = toMap(arguments.value(1));
    for (auto value = values.cbegin(); value != values.cend(); ++value) {
        properties.insert(value.key(), value.value());
    }
    if (!arguments.value(2).toStringList().isEmpty()) {
        refresh([](const Answer &) {});
    }
    Q_EMIT changed();
}

void ServiceConnection::takeEnd(const QDBusMessage &message)
{
    const QVariantList arguments = message.arguments();
    QVariantMap summary = toMap(arguments.value(3));
    summary.insert("job", arguments.value(0));
    summary.insert("operation", arguments.value(1));
    summary.insert("code", arguments.value(2));
    Q_EMIT finished(JobSummary::of(summary));
}

void ServiceConnection::refresh(const Handler &handler)
{
    send(propertiesInterface, "GetAll", {QString(controlInterface)}, [this, handler](const Answer &answer) {
        if (!answer.failure) {
            properties = toMap(answer.values.value(0));
        }
        handler(answer);
        Q_EMIT changed();
    });
}

void ServiceConnection::call(const QString &method, const QVariantList &arguments, const Handler &handler)
{
    send(controlInterface, method, arguments, handler);
}

void ServiceConnection::callModule(const QString &method, const Handler &handler)
{
    send(moduleInterface, method, {}, handler);
}

void ServiceConnection::send(const QString &interface, const QString &method, const QVariantList &arguments,
                             const Handler &handler)
{
    QDBusMessage message = QDBusMessage::createMethodCall(serviceName, objectPath, interface, method);
    message.setArguments(arguments);
    message.setAutoStartService(false);
    auto *const watcher = new QDBusPendingCallWatcher(bus.asyncCall(message, callLimitMs), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher, handler] {
        watcher->deleteLater();
        handler(answerTo(watcher->reply()));
    });
}

ServiceConnection::Answer ServiceConnection::answerTo(const QDBusMessage &reply) const
{
    if (reply.type() == QDBusMessage::ErrorMessage) {
        return {{}, failureOf(reply)};
    }
    return {reply.arguments(), {}};
}

double ServiceConnection::progress() const
{
    return std::clamp(properties.value("Progress").toDouble(), 0.0, 1.0);
}

std::optional<JobSummary> ServiceConnection::last(const QString &operation) const
{
    const QVariantMap summary = toMap(properties.value("Last" + operation));
    return summary.isEmpty() ? std::nullopt : std::optional(JobSummary::of(summary));
}
