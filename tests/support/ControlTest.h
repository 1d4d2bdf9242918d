#pragma once

#include "tests/support/ForeignClient.h"
#include "tests/support/NginxServer.h"
#include "tests/support/OperationTest.h"

#include <optional>

/// What tests of the control interface share: modules with an item of each kind, and a client that is not
/// ours.
class ControlTest : public OperationTest
{
    Q_OBJECT

protected:
    std::optional<ForeignClient> client;
    std::optional<NginxServer> nginx;

    /// A and Dependent are paused together; B is nobody's; Silent never answers.
    void addModules() const
    {
        device->addModule("A", "<databases><database name='d'><dependency>Dependent</dependency></database>"
                               "</databases><files><file>f</file><file zip='true'>z</file></files>");
        device->addModule("Dependent", "<files><file priority='normal'>g</file></files>");
        device->addModule("B", "<files><file priority='low'>h</file></files>");
        device->addModule("Silent", "", "--ignore-reset");
        changeData("old");
    }

    void changeData(const QByteArray &content) const
    {
        device->sql("A", "d",
                    "CREATE TABLE IF NOT EXISTS t(v); UPDATE t SET v = '" + content +
                        "'; INSERT INTO t SELECT '" + content + "' WHERE 0 = (SELECT count(*) FROM t)");
        for (const char *item : {"A/f", "A/z/x", "Dependent/g", "B/h"}) {
            device->write(QString("data/VYXApplication/") + item, content);
        }
    }

    void watch() { client.emplace(*device); }

    bool startOn(const QString &place)
    {
        addModules();
        if (place == "HTTPS") {
            nginx.emplace("server");
            NginxServer::installTool(device->path({}));
            QFile::remove(device->path("data/dev_mode"));
        }
        const bool started = place == "HTTPS" ? (device->writeSettings("2", nginx->url()), device->start())
                                              : start(place == "server");
        watch();
        return started;
    }

    QJsonValue job(const QString &method, const QString &options = "{}")
    {
        return client->end(client->call(method, options));
    }

    /// "module item action" of each, sorted.
    static QString changesOf(const QJsonValue &summary)
    {
        QStringList changes;
        for (const QJsonValue change : summary["changes"]["data"].toArray()) {
            changes << change[0].toString() + " " + change[1].toString() + " " + change[2].toString();
        }
        changes.sort();
        return changes.join(", ");
    }

    /// Begin an operation and wait until the server holds a request of it.
    QString beginHeld(const QString &request, const QString &method = "Save")
    {
        treated = {{request, StoreServer::Held}};
        const QString answer = client->call(method, "{}");
        TestDevice::waitUntil([this] { return store->isHolding(); });
        treated.clear();
        return answer;
    }

protected Q_SLOTS:
    void init() { startAfresh(); }
    void cleanup()
    {
        client.reset();
        nginx.reset();
        QCOMPARE(TestDevice::retire(device), QString());
    }
};
