#pragma once

#include "tests/support/TestDevice.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

/// The control interface as programs see it that know nothing of the service: gdbus calls, busctl reads
/// properties and watches the bus.
class ForeignClient
{
public:
    /// Watch the device's bus from now on; the service runs.
    explicit ForeignClient(TestDevice &device) : environment(device.service().processEnvironment())
    {
        monitor.setProcessEnvironment(environment);
        monitor.setStandardErrorFile(device.path("monitor.log"));
        monitor.start("busctl", {"--json=short", "monitor", name});
        TestDevice::waitUntil([&] { return readFile(device.path("monitor.log")).contains("Monitoring"); });
    }
    ~ForeignClient() { TestDevice::end(monitor); }

    ForeignClient(const ForeignClient &) = delete;
    ForeignClient &operator=(const ForeignClient &) = delete;

    /// What a program prints; its exit status is appended when it is not 0.
    QString run(const QString &program, const QStringList &arguments) const
    {
        QProcess process;
        process.setProcessEnvironment(environment);
        process.setProcessChannelMode(QProcess::MergedChannels);
        process.start(program, arguments);
        TestDevice::waitUntil([&] { return process.state() == QProcess::NotRunning; }, limitMs);
        const int status = process.exitCode();
        return QString::fromUtf8(process.readAll()).trimmed() +
               (status == 0 ? "" : QString(" (%1)").arg(status));
    }

    /// The answer to a method of that interface, or the whole name of the error and its text.
    QString call(const QString &method, const QString &arguments = {}, const QString &of = control) const
    {
        QStringList words = {"call",          "--system", "--timeout=60", "--dest",         name,
                             "--object-path", object,     "--method",     of + "." + method};
        return run("gdbus", arguments.isEmpty() ? words : words << arguments);
    }

    /// The code of an error.
    static QString codeOf(const QString &answer)
    {
        static const QRegularExpression error(R"(GDBus\.Error:com\.corvane\.Pelorin\.Error\.(\w+): \S)");
        return error.match(answer).captured(1);
    }

    /// The number of the job that the answer promises; 0 for none.
    static int jobOf(const QString &answer)
    {
        static const QRegularExpression number(R"(^\(uint32 (\d+),\)$)");
        return number.match(answer).captured(1).toInt();
    }

    /// How a job ends: its summary with the operation and code of the signal as "signal"; or as "refused" why
    /// none has begun.
    QJsonValue end(const QString &answer)
    {
        const int job = jobOf(answer);
        const auto finished = [&] { return finishedJobs().contains(job); };
        if (job == 0 || !TestDevice::waitUntil(finished, limitMs)) {
            return QJsonObject{{"refused", answer}};
        }
        const QJsonArray data =
            signalsOf("Finished").at(finishedJobs().indexOf(job))["payload"]["data"].toArray();
        QJsonObject summary = data[3].toObject();
        summary["signal"] = data[1].toString() + " " + data[2].toString();
        return summary;
    }

    /// The code with which a job ends, or is refused.
    QString code(const QString &method, const QString &options = "{}")
    {
        const QString answer = call(method, options);
        return jobOf(answer) == 0 ? codeOf(answer) : end(answer)["code"]["data"].toString();
    }

    /// Type and value, as {"type": ..., "data": ...}.
    QJsonValue property(const QString &property) const
    {
        const QString line = run("busctl", {"--json=short", "get-property", name, object, control, property});
        return QJsonDocument::fromJson(line.toUtf8()).object();
    }

    /// The messages with a member, in their order.
    QList<QJsonValue> signalsOf(const QString &member)
    {
        while (monitor.canReadLine()) {
            seen << QJsonDocument::fromJson(monitor.readLine()).object();
        }
        QList<QJsonValue> found;
        for (const QJsonValue &message : std::as_const(seen)) {
            if (message["type"] == "signal" && message["member"] == member) {
                found << message;
            }
        }
        return found;
    }

    /// The jobs that have ended, in this order.
    QList<int> finishedJobs()
    {
        QList<int> jobs;
        for (const QJsonValue &message : signalsOf("Finished")) {
            jobs << message["payload"]["data"][0].toInt();
        }
        return jobs;
    }

    static constexpr const char *name = "com.corvane.Pelorin.VYXSaveRestore";
    static constexpr const char *object = "/com/corvane/Pelorin/VYXSaveRestore";
    static constexpr const char *control = "com.corvane.Pelorin.SaveRestoreControl1";

private:
    static constexpr int limitMs = 60000;

    QProcessEnvironment environment;
    QProcess monitor;
    QList<QJsonValue> seen;
};
