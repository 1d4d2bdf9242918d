#pragma once

#include "saverestorectl/ExitStatus.h"
#include "saverestorectl/JobSummary.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QVariantMap>

#include <functional>
#include <optional>

/// The service as it is seen on the bus: its properties as they are now, its methods, and the end of jobs.
class ServiceConnection : public QObject
{
    Q_OBJECT

public:
    /// What a method returned, or why it did not.
    struct Answer
    {
        QVariantList values;
        std::optional<Failure> failure;
    };
    using Handler = std::function<void(const Answer &)>;

    ServiceConnection();

    /// Find the service and read its properties; why that is not possible, if it is not. The service is not
    /// started.
    std::optional<Failure> open();

    /// Call a method of the control interface; the answer comes from the event loop.
    void call(const QString &method, const QVariantList &arguments, const Handler &handler);
    /// The same of the interface of the middleware.
    void callModule(const QString &method, const Handler &handler);
    /// Ask for all properties anew.
    void refresh(const Handler &handler);

    QString version() const { return properties.value("Version").toString(); }
    QString operation() const { return properties.value("Operation").toString(); }
    quint32 job() const { return properties.value("Job").toUInt(); }
    QString phase() const { return properties.value("Phase").toString(); }
    /// 0 to 1.
    double progress() const;
    /// Bytes of the phase: those dealt with, and all; 0 and 0 where that is not known.
    quint64 phaseBytesDone() const { return properties.value("PhaseBytesDone").toULongLong(); }
    quint64 phaseBytes() const { return properties.value("PhaseBytes").toULongLong(); }
    QString module() const { return properties.value("CurrentModule").toString(); }
    QString repository() const { return properties.value("Repository").toString(); }
    quint64 nextSave() const { return properties.value("NextSave").toULongLong(); }
    /// Of "Save", "Restore" or "Verify"; nothing when there is none.
    std::optional<JobSummary> last(const QString &operation) const;
    bool isIdle() const { return operation().isEmpty() || operation() == "none"; }

Q_SIGNALS:
    /// A property has another value.
    void changed();
    void finished(const JobSummary &summary);
    /// The service is no longer there, or the bus is not.
    void vanished(const QString &text);

private Q_SLOTS:
    void takeChanges(const QDBusMessage &message);
    void takeEnd(const QDBusMessage &message);
    void loseBus();

private:
    void watch();
    void send(const QString &interface, const QString &method, const QVariantList &arguments,
              const Handler &handler);
    Answer answerTo(const QDBusMessage &reply) const;

    QDBusConnection bus;
    QVariantMap properties;
};
