#include "service/OperationSlot.h"
#include "tests/support/ControlTest.h"
#include "tests/support/TestMiddleware.h"

#include <QDBusConnectionInterface>
#include <QMetaEnum>

#include <csignal>

using Outcome::Code;

/// Each code with which a call of the control interface is refused, or an operation ends.
class tst_codes : public ControlTest
{
    Q_OBJECT

    /// Run a line of the shell in the device's root; `call` calls the service's other interface.
    QByteArray disturb(const QString &line) const
    {
        return TestDevice::shell("cd '" + device->path({}) + "' && {\n" +
                                 R"(ask() { busctl "--address=unix:path=$PWD/bus" call "$@"; }
                                    call() { ask com.corvane.Pelorin.VYXSaveRestore \
                                        /com/corvane/Pelorin/VYXSaveRestore com.corvane.Pelorin.VYXInterface "$@"; }
                                 )" +
                                 line + "\n} 2>&1");
    }

private Q_SLOTS:
    void cleanup()
    {
        TestDevice::shell("umount -l '" + device->repositoryPath() + "' 2>/dev/null");
        ControlTest::cleanup();
    }

    void guideNamesEach()
    {
        const QByteArray guide = readFile(QString(SOURCES) + "/docs/control.md");
        const auto codes = QMetaEnum::fromType<Code>();
        for (int number = 0; number < codes.keyCount(); ++number) {
            QVERIFY2(guide.contains(QByteArray("\n| ") + codes.key(number) + " |"), codes.key(number));
        }
        QCOMPARE(codes.keyCount(), 21);
    }

    void optionsThatAreRefused()
    {
        QVERIFY(startOn("directory"));
        const char *const calls[][3] = {{"Save", "{'full': <true>}", "InvalidOption"},
                                        {"Save", "{'dry_run': <1>}", "InvalidOption"},
                                        {"Save", "{'dry_run': <'true'>}", "InvalidOption"},
                                        {"Save", "{'modules': <'A'>}", "InvalidOption"},
                                        {"Save", "{'modules': <[1]>}", "InvalidOption"},
                                        {"Save", "{'modules': <@as []>}", "InvalidOption"},
                                        {"Save", "{'modules': <[<'A'>]>}", "InvalidOption"},
                                        {"Save", "{'priorities': <@as []>}", "InvalidOption"},
                                        {"Save", "{'priorities': <['high', 'urgent']>}", "InvalidOption"},
                                        {"Save", "{'Modules': <['A']>}", "InvalidOption"},
                                        {"Save", "{'': <true>}", "InvalidOption"},
                                        {"Restore", "{'repair': <true>}", "InvalidOption"},
                                        {"Verify", "{'modules': <['A']>}", "InvalidOption"},
                                        {"Verify", "{'full': <{'a': true}>}", "InvalidOption"},
                                        {"Save", "{'modules': <['A', 'Nobody']>}", "ModulesUnknown"},
                                        {"Save", "{'modules': <['']>}", "ModulesUnknown"},
                                        {"Restore", "{'modules': <['../A']>}", "ModulesUnknown"},
                                        {"Save", "{'modules': <['A', 'A']>, 'repair': <false>}", "Success"}};
        for (const auto &[method, options, expected] : calls) {
            QVERIFY2(client->code(method, options) == expected, options);
        }
        QVERIFY(!client->call("Save", "7").startsWith("(uint32"));
    }

    void codes_data()
    {
        const auto add = [](const char *name, const QString &code, const QString &place,
                            const QString &methods, const QString &line, const QString &struck = {},
                            int status = 0) {
            row(name, code, place, methods.split(' '), line, struck, status);
        };
        columns<QString, QString, QStringList, QString, QString, int>("code", "place", "methods", "line",
                                                                      "struck", "status");
        const char *const all = "Save Restore Verify List Preview";
        const char *const notTrusted = "echo STATUS=UNSECURED >etc/VYXApplication/pki.conf";
        const char *const noManager =
            "kill -9 $(ask org.freedesktop.DBus / org.freedesktop.DBus "
            "GetConnectionUnixProcessID s com.corvane.Pelorin.ApplicationManager | cut -c 3-)";
        const char *const small = "mount -t tmpfs -o size=64k small media/repository";
        const char *const badList = "head -c 2000000 /dev/zero >media/repository/modules-list.sav";
        add("level 0", "Disabled", "directory", "Save Restore Preview", "call setSaveRestoreLevel i 0");
        add("no URL", "NoRepository", "directory", all, "call setRepositoryUrl s ''");
        add("no developer mode", "Insecure", "server", all, "rm data/dev_mode");
        add("no trust list", "NotTrusted", "HTTPS", all, notTrusted);
        add("directory gone", "Unreachable", "directory", all, "rm -r media/repository");
        add("server closes", "Unreachable", "server", all, {}, "GET ");
        add("server closes later", "Unreachable", "server", "Save Restore Verify", {}, "GET .*s");
        add("no manager", "ModulesUnknown", "directory", "Save Restore Preview", noManager);
        add("deaf module", "PauseFailed", "directory", "Save", {});
        add("no place", "StagingFull", "directory", all,
            "rm -r tmp/VYXApplication; touch tmp/VYXApplication");
        add("507", "RepositoryFull", "server", "Save", {}, "PUT ", 507);
        add("small disk", "RepositoryFull", "directory", "Save", small);
        add("one is refused", "Partial", "server", "Save", {}, "PUT h", 500);
        add("one leads out", "Partial", "directory", "Save", "ln -sf /etc/passwd data/VYXApplication/B/h");
        add("entry gone", "Partial", "directory", "Restore", "rm media/repository/h");
        add("damage", "Damaged", "directory", "Verify", "rm media/repository/h");
        add("format of the future", "NewerFormat", "directory", "Save Restore Verify",
            "echo 2 >media/repository/.saverestore-format");
        add("bad list", "Failed", "directory", "Save Restore", badList);
        add("bad list, verified", "Damaged", "directory", "Verify", badList);
    }
    void codes()
    {
        QFETCH(QString, code);
        QFETCH(QString, place);
        QFETCH(QStringList, methods);
        QFETCH(QString, line);
        QFETCH(QString, struck);
        QFETCH(int, status);
        if (code == "PauseFailed") {
            device->addModule("Deaf", "<databases><database name='d'/></databases>", "--ignore-pause");
            device->sql("Deaf", "d", "CREATE TABLE t(v)");
        }
        QVERIFY(startOn(place));
        QVERIFY(code == "PauseFailed" || client->code("Save") == "Success");
        changeData("new");
        device->writeData("B", "h", QByteArray(200000, 'x'));
        const QByteArray printed = disturb(line);
        if (printed.startsWith("mount:")) {
            QSKIP("only root can make a small disk");
        }
        store->failStatus = status;
        store->behaviour = [=](int, const QString &method, const QString &entry) {
            const bool hit =
                !struck.isEmpty() && QRegularExpression("^" + struck).match(method + " " + entry).hasMatch();
            return !hit ? StoreServer::Proper : status == 0 ? StoreServer::Close : StoreServer::Fail;
        };
        for (const QString &method : methods) {
            const QString answer = client->call(method, method == "List" || method == "Preview" ? "" : "{}");
            const QJsonValue end = client->end(answer);
            const QString found = ForeignClient::codeOf(answer) + end["code"]["data"].toString();
            QVERIFY2(found == code, qPrintable(method + ": " + answer + found + printed));
            QCOMPARE(end["text"]["data"].toString().isEmpty(), end["refused"].isString());
            QVERIFY(end["itemsFailed"]["data"].toInt() > 0 || (code != "Partial" && code != "Damaged"));
        }
    }

    /// Whatever else is asked for meanwhile is refused, and either interface can be ended.
    void oneAtATime()
    {
        QVERIFY(startOn("server"));
        QCOMPARE(client->code("Save"), "Success");
        changeData("new");
        const QString held = beginHeld("GET A.cksum");
        QCOMPARE(client->property("Job")["data"].toInt(), 2);
        for (const char *method : {"Save", "Restore", "Verify", "List", "Preview"}) {
            QCOMPARE(
                ForeignClient::codeOf(client->call(method, *method == 'L' || *method == 'P' ? "" : "{}")),
                "Busy");
        }
        QVERIFY(!device->save());
        QCOMPARE(client->property("Operation")["data"].toString(), "save");
        QVERIFY(TestDevice::waitUntil([this] { return client->property("Phase")["data"] == "reading"; }));
        QVERIFY(!client->property("Repository")["data"].toString().contains("s3cret"));
        QCOMPARE(client->call("Cancel") + client->call("Cancel"), "()()");
        QCOMPARE(client->end(held)["signal"].toString(), "save Cancelled");
        store->release();

        const QDBusPendingCall old = beginAndHold("GET A.cksum", "startRestoreFromRepository");
        client->call("Cancel");
        end(old);
        QVERIFY(TestDevice::waitUntil([this] { return client->finishedJobs().contains(3); }));
        QCOMPARE(client->property("LastRestore")["data"]["code"]["data"].toString(), "Cancelled");
        store->release();

        const QString changed = beginHeld("GET A.cksum", "Verify");
        device->call("setRepositoryUrl", {device->repositoryPath()});
        QCOMPARE(client->end(changed)["signal"].toString(), "verify RepositoryChanged");
        store->release();
        device->call("setRepositoryUrl", {url()});

        const QDBusPendingCall reset = device->callLater("resetToDefault");
        QVERIFY(device->waitForLog("module Silent has not reset yet"));
        QCOMPARE(ForeignClient::codeOf(client->call("Cancel")), "NotCancellable");
        QCOMPARE(ForeignClient::codeOf(client->call("List")), "Busy");
        end(reset);
        QCOMPARE(client->call("Cancel"), "()");
        QCOMPARE(client->code("Save"), "Success");
        QCOMPARE(client->finishedJobs(), QList<int>({1, 2, 3, 4, 5, 6}));
    }

    void endOfTheProcess()
    {
        QVERIFY(startOn("server"));
        const QString held = beginHeld("PUT h");
        QCOMPARE(device->stopService(), 0);
        QCOMPARE(client->end(held)["signal"].toString(), "save Stopped");
        store->release();
        QVERIFY(device->startService("FastService"));
        QCOMPARE(client->property("LastSave")["data"]["code"]["data"].toString(), "Stopped");
        QCOMPARE(client->property("LastSave")["data"]["lastSuccess"]["data"].toInt(), 0);
    }

    /// Nobody is told of a job that does not come, and no exception keeps the slot taken.
    void slotIsFreeInTheEnd()
    {
        TestMiddleware middleware;
        OperationSlot slot(middleware);
        QList<Code> codes;
        connect(&slot, &OperationSlot::ended, this, [&](const std::optional<OperationSummary> &summary) {
            codes << (summary ? summary->code : Code::Success);
        });
        const auto fail = [](Waiter &, OperationReport &) { throw std::bad_alloc(); };
        slot.run(OperationSlot::Operation::Save, fail);
        slot.start(OperationSlot::Operation::Save, fail);
        QCoreApplication::processEvents();
        slot.start(OperationSlot::Operation::Restore, [](Waiter &, OperationReport &) { throw 7; });
        slot.dropQueued();
        QCoreApplication::processEvents();
        slot.dropQueued();
        bool refused = false;
        try {
            slot.look(OperationSlot::Operation::Verify, fail);
        } catch (const ControlError &error) {
            refused = error.code == Code::Failed;
        }
        QVERIFY(refused && slot.report() == nullptr);
        QCOMPARE(codes, QList<Code>({Code::Failed, Code::Failed, Code::Stopped, Code::Success}));
    }
};

QTEST_GUILESS_MAIN(tst_codes)
#include "tst_codes.moc"
