#pragma once

#include "tests/support/FaultControl.h"
#include "tests/support/OperationTest.h"
#include "tests/support/Promises.h"

#include <fcntl.h>
#include <sys/mman.h>

/// What tests share that strike calls of the service and its children: a device with items of each kind, old,
/// new and damaged ones, and what becomes of them.
class StruckTest : public OperationTest
{
protected:
    QTemporaryDir place;
    FaultControl *control = nullptr;
    QMap<QString, Files> live;    ///< items of the modules' data, by what is told of them
    QMap<QString, Files> entries; ///< the repository with these saved

    QString dataRoot() const { return device->path("data/VYXApplication"); }

    /// Each item with what it holds: a directory that is saved as a whole is one, a database is its rows.
    static Files items(const QString &data)
    {
        static Files rows;
        Files items;
        const Files files = filesBelow(data + "/");
        for (auto file = files.cbegin(); file != files.cend(); ++file) {
            const QString &name = file.key();
            if (name.startsWith("A/z/")) {
                items["A/z"] += name.toUtf8() + "=" + file.value() + "\n";
            } else if (name.endsWith(".data")) {
                QByteArray &known = rows[QString::fromLatin1(file.value() + files[name + "-journal"])];
                known = known.isEmpty() ? TestDevice::sqlOnFile(data + "/" + name, "SELECT v FROM t") : known;
                items[name] = known;
            } else if (!name.contains(".data-") && !name.startsWith("VYXSaveRestore/")) {
                items[name] = file.value();
            }
        }
        return items;
    }

    void changeData(const QByteArray &content) const
    {
        write("A", {"z/f", "z/g", "dir/changes"}, content);
        write("B", {"plain", "low"}, content);
        for (const char *database : {"d", "rows"}) {
            device->sql("A", database,
                        "CREATE TABLE IF NOT EXISTS t(k INTEGER PRIMARY KEY, v); REPLACE INTO t VALUES(1, '" +
                            content + "')");
        }
        if (content == "old") {
            write("A", {"dir/goes", "dir/stays"}, "old");
            QFile::copy(device->dataPath("A", "d.data"), device->dataPath("A", "broken.data"));
        } else if (content == "new") {
            QFile::remove(device->dataPath("A", "dir/goes"));
            write("A", {"dir/appears"}, "new");
        } else if (content == "damaged") {
            QFile::remove(device->dataPath("A", "dir/appears"));
            write("A", {"broken.data"}, "damaged");
        }
    }

    /// End the service and start it with its calls watched; true when it had ended well, or was killed.
    bool serveAfresh(bool killed = false)
    {
        QProcess &service = device->service();
        const bool well = killed ? service.waitForFinished() || service.exitStatus() == QProcess::CrashExit
                                 : device->stopService() == 0;
        qputenv("LD_PRELOAD", FAULTS_LIBRARY);
        const bool started = device->startService("FastService");
        qunsetenv("LD_PRELOAD");
        return started && well;
    }

    bool prepare(bool server)
    {
        device.reset();
        startAfresh();
        const QByteArray root = device->path({}).chopped(1).toUtf8();
        qputenv("VYX_DEVICE_ROOT", root);
        qstrncpy(control->root.data(), root.constData(), control->root.size());
        device->addModule("A",
                          "<databases><database name='d'/><database name='broken'/><database name='rows'>"
                          "<sql-command table-name='t'>SELECT * FROM t</sql-command></database></databases>"
                          "<files><file zip='true'>z</file><file>dir</file></files>");
        device->addModule("B", "<files><file>plain</file><file priority='low'>low</file></files>");
        bool ready = start(server);
        for (const QByteArray content : {"old", "new", "damaged"}) {
            changeData(content);
            live[content] = items(dataRoot());
            const QString kept = place.filePath(content);
            TestDevice::shell("rm -rf " + kept + " && cp -a " + dataRoot() + " " + kept);
            ready = ready && (content == "damaged" || (save() && popUps.isEmpty()));
            entries[content] = repository();
        }
        return ready && serveAfresh();
    }

    /// New data and the repository before them, or damaged data and what they are restored from.
    void setBack(bool restores)
    {
        const QString data = place.filePath(restores ? "damaged" : "new");
        TestDevice::shell("rm -rf " + dataRoot() + " && cp -a " + data + " " + dataRoot());
        const Files &held = entries[restores ? "new" : "old"];
        store->entries = onServer ? held : Files();
        putFiles(device->repositoryPath(), onServer ? Files() : held);
    }

    void operate(bool restores) { run(restores ? "startRestoreFromRepository" : "startSaveOnRepository"); }

    /// What is neither as it was nor as it was saved, and what the repository promises and does not hold.
    QStringList faultsOf(bool restores, const QString &data, const Files &held) const
    {
        QStringList faults;
        const Files before = live[restores ? "damaged" : "new"];
        const Files after = live["new"];
        const Files now = items(data);
        for (const QString &item : QStringList(now.keys() + after.keys())) {
            const QByteArray content = now.value(item, "none");
            if (content != before.value(item, "none") && content != after.value(item, "none")) {
                faults << item + " is " + content;
            }
        }
        if (restores ? held != entries["new"] : !untrueLine(held).isEmpty()) {
            faults << "the repository is not sound: " + untrueLine(held);
        }
        return faults;
    }

    bool isDone(bool restores) const
    {
        return restores ? items(dataRoot()) == live["new"]
                        : uncompressed(repository()) == uncompressed(entries["new"]);
    }

    bool mapControl()
    {
        const QByteArray file = place.filePath("control").toUtf8();
        writeFile(file, QByteArray(sizeof(FaultControl), 0));
        const int opened = open(file.constData(), O_RDWR);
        void *mapped = mmap(nullptr, sizeof(FaultControl), PROT_READ | PROT_WRITE, MAP_SHARED, opened, 0);
        control = static_cast<FaultControl *>(mapped);
        qputenv("FAULT_CONTROL", file);
        qputenv("ASAN_OPTIONS", qgetenv("ASAN_OPTIONS") + ":verify_asan_link_order=0");
        return mapped != MAP_FAILED;
    }
};
