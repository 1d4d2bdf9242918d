#include "tests/support/ControlTest.h"
#include "tests/support/Promises.h"

#include <QXmlStreamReader>

#include <numeric>

/// The control interface, driven by clients that are not ours: what it says of itself, and what it does.
class tst_control : public ControlTest
{
    Q_OBJECT

    /// Live data and repository.
    Files world() const
    {
        Files files = filesBelow(device->path("data/"));
        files.removeIf([](const auto &file) { return file.key().contains("/VYXSaveRestore/"); });
        files.insert(filesBelow(nginx ? nginx->store() : device->repositoryPath()));
        return files;
    }

    /// The elements of an interface, each with what it is in and its attributes.
    static QStringList elements(const QString &xml)
    {
        QStringList found;
        QStringList path;
        QXmlStreamReader reader(xml);
        while (!reader.atEnd()) {
            const auto token = reader.readNext();
            if (token == QXmlStreamReader::StartElement) {
                QStringList words;
                for (const QXmlStreamAttribute &attribute : reader.attributes()) {
                    words << attribute.name().toString() + "=" + attribute.value().toString();
                }
                words.sort();
                path << reader.name().toString() + " " + words.join(' ');
                if (path.value(1).contains(ForeignClient::control)) {
                    found << path.mid(1).join(" / ");
                }
            } else if (token == QXmlStreamReader::EndElement) {
                path.removeLast();
            }
        }
        found.sort();
        return reader.hasError() ? QStringList(reader.errorString()) : found;
    }

    static QString description()
    {
        return QString::fromUtf8(readFile(QString(SOURCES) + "/dbus/" + ForeignClient::control + ".xml"));
    }

    /// The keys of summaries with their types, as the description has them.
    static QMap<QString, QString> describedKeys(bool verify)
    {
        QMap<QString, QString> keys;
        static const QRegularExpression key(R"(\n {4}(\w+) +([a-z(){}]+)(?= |\n))");
        for (const auto &found :
             key.globalMatch(description().section("A summary", 1).section("-->", 0, 0))) {
            if (verify || !found.captured(1).startsWith("leftOver")) {
                keys.insert(found.captured(1), found.captured(2));
            }
        }
        return keys;
    }

    static QMap<QString, QString> keysOf(const QJsonValue &summary)
    {
        const QJsonObject map = summary.toObject();
        QMap<QString, QString> keys;
        for (auto value = map.begin(); value != map.end(); ++value) {
            if (value.key() != "signal") {
                keys.insert(value.key(), map.value(value.key())["type"].toString());
            }
        }
        return keys;
    }

    /// What is wrong with how the properties went on, as they were told.
    QString faultOfChanges()
    {
        qint64 job = 0;
        double progress = 0;
        QMap<qint64, QList<double>> times;
        for (const QJsonValue &message : client->signalsOf("PropertiesChanged")) {
            const QJsonValue changed = message["payload"]["data"][1];
            const double before = progress;
            job = changed["Job"]["data"].toInteger(job);
            progress = changed["Progress"]["data"].toDouble(progress);
            const bool begins = changed["Operation"]["data"].toString("none") != "none";
            if (progress > 1 || (progress < before && !begins)) {
                return QString("progress from %1 to %2").arg(before).arg(progress);
            }
            times[job] << message["timestamp-realtime"].toDouble() / 1e6;
        }
        for (auto one = times.cbegin(); one != times.cend(); ++one) {
            const double seconds = one->last() - one->first();
            if (one.key() > 0 && double(one->size()) > 2 + 10.5 * seconds) {
                return QString("%1 changes in %2 s").arg(one->size()).arg(seconds);
            }
        }
        return times.size() < 3 ? "no changes were told" : QString();
    }

    /// Over a kill, and a file that is not in order.
    void lastOnesStay()
    {
        QMap<QString, QJsonValue> last;
        for (const char *property : {"LastSave", "LastRestore", "LastVerify"}) {
            last[property] = client->property(property)["data"];
            auto keys = describedKeys(QString(property) == "LastVerify");
            keys.insert("lastSuccess", "t");
            QCOMPARE(keysOf(last[property]), keys);
            QCOMPARE(last[property]["lastSuccess"]["data"], last[property]["started"]["data"]);
        }
        const QString path = device->dataPath("VYXSaveRestore", "last-operations");
        const QByteArray whole = readFile(path);
        const QByteArrayList contents = {whole, whole.left(whole.size() / 2), "[[[[",
                                         R"({"operations":[7,{"operation":""}]})"};
        for (const QByteArray &content : contents) {
            device->service().kill();
            device->service().waitForFinished();
            writeFile(path, content);
            QVERIFY(device->startService("FastService"));
            for (const QString &property : last.keys()) {
                QCOMPARE(client->property(property)["data"].toObject(),
                         content == whole ? last[property].toObject() : QJsonObject());
            }
        }
        QVERIFY(device->save());
        QCOMPARE(client->property("LastSave")["data"]["code"]["data"].toString(), "Success");
    }

private Q_SLOTS:
    void introspection()
    {
        QVERIFY(startOn("directory"));
        const QStringList where = {ForeignClient::name, ForeignClient::object};
        const QString table = client->run("busctl", QStringList{"introspect"} + where);
        const QStringList words = {"introspect", "--system", "--dest", where[0], "--object-path", where[1]};
        const QString text = client->run("gdbus", words);
        const QStringList described = elements(description());
        QCOMPARE(elements(client->run("gdbus", words + QStringList{"--xml"})).join('\n'),
                 described.join('\n'));
        int members = 0;
        for (const QString &element : described) {
            static const QRegularExpression member(
                "^[^/]* / (method|property|signal) [^/]*\\bname=(\\w+)[^/]*$");
            const auto found = member.match(element);
            if (found.hasMatch()) {
                ++members;
                const QRegularExpression row("\n\\." + found.captured(2) + " +" + found.captured(1));
                QVERIFY2(table.contains(row), qPrintable(element + "\n" + table));
                QVERIFY2(text.contains(QRegularExpression("\\b" + found.captured(2) + "\\b")),
                         qPrintable(text));
            }
        }
        QCOMPARE(members, 20);
        QVERIFY(text.contains("startSaveOnRepository(out b"));
        QVERIFY(client->call("Set", "x", "org.freedesktop.DBus.Properties").endsWith("(1)"));
    }

    void jobs_data()
    {
        columns<QString>("place");
        row("directory", QString("directory"));
        row("HTTPS", QString("HTTPS"));
    }
    /// The life of a repository, on which every method, property and signal is seen.
    void jobs()
    {
        QFETCH(QString, place);
        QVERIFY(startOn(place));
        QCOMPARE(client->property("LastSave")["data"].toObject(), QJsonObject());
        for (const char *method : {"Restore", "Verify"}) {
            QCOMPARE(client->code(method), "NothingSaved");
        }
        for (const char *method : {"List", "Preview"}) {
            QCOMPARE(ForeignClient::codeOf(client->call(method)), "NothingSaved");
        }

        // Nothing is changed by what only tries.
        const QString all = "A d sent, A f sent, A z sent, B h sent, Dependent g sent";
        const Files before = world();
        QCOMPARE(changesOf(job("Save", "{'dry_run': <true>}")), all);
        QVERIFY(world() == before);
        QCOMPARE(client->property("LastSave")["data"].toObject(), QJsonObject());

        QCOMPARE(changesOf(job("Save", "{'modules': <['Dependent']>}")),
                 "A d sent, A f sent, A z sent, Dependent g sent");
        QCOMPARE(changesOf(job("Save", "{'priorities': <['high', 'normal']>}")), "");
        const QJsonValue save = job("Save");
        QCOMPARE(save["signal"].toString(), "save Success");
        QCOMPARE(changesOf(save), "B h sent");
        QCOMPARE(save["itemsSkipped"]["data"].toInt(), 4);
        QCOMPARE(keysOf(save), describedKeys(false));
        const QJsonValue group = save["groups"]["data"][0];
        QCOMPARE(group["modules"]["data"].toArray(), QJsonArray({"A", "Dependent"}));
        for (const char *step : {"asked", "paused", "copied", "resumed", "staged"}) {
            QCOMPARE(group[step]["type"].toString(), "d");
        }
        const QJsonValue verify = job("Verify", "{'full': <true>}");
        QCOMPARE(verify["signal"].toString(), "verify Success");
        QCOMPARE(keysOf(verify), describedKeys(true));
        QCOMPARE(verify["leftOverKnown"]["data"].toBool(), place == "directory");
        QCOMPARE(verify["itemsDone"]["data"].toInt(), 5);
        const QString list = client->call("List");
        QVERIFY2(list.contains("'entry': <'A++z.tar.gz'>, 'item': <'z'>, 'kind': <'directory'>, "
                               "'module': <'A'>, 'priority': <'high'>") &&
                     list.count("'kind': <'file'>") == 3 &&
                     list.count("'size': <uint64 3>") == (place == "directory" ? 3 : 0),
                 qPrintable(list));

        changeData("damaged");
        QFile::remove(device->dataPath("B", "h"));
        const Files damaged = world();
        const QString preview = client->call("Preview");
        QVERIFY2(preview.contains("('B', 'h', 'create', '')") &&
                     preview.contains("('A', 'd', 'replace', '')"),
                 qPrintable(preview));
        const QString expected =
            "A d replaced, A f replaced, A z replaced, B h created, Dependent g replaced";
        QCOMPARE(changesOf(job("Restore", "{'dry_run': <true>}")), expected);
        QVERIFY(world() == damaged);
        // These alone, though their group is paused.
        QCOMPARE(changesOf(job("Restore", "{'modules': <['Dependent']>}")), "Dependent g replaced");
        const QJsonValue restore = job("Restore");
        QCOMPARE(restore["signal"].toString(), "restore Success");
        QCOMPARE(keysOf(restore), describedKeys(false));
        QCOMPARE(device->readData("A", "z/x") + device->readData("B", "h") +
                     device->sql("A", "d", "SELECT v FROM t"),
                 "oldoldold\n");

        QVERIFY(device->save());
        device->call("startRestoreFromRepository");
        device->call("resetToDefault");
        QVERIFY(TestDevice::waitUntil([this] { return client->finishedJobs().size() == 13; }));
        QList<int> numbers(13);
        std::iota(numbers.begin(), numbers.end(), 1);
        QCOMPARE(client->finishedJobs(), numbers);
        const QJsonValue reset = client->signalsOf("Finished").last()["payload"]["data"];
        QCOMPARE(reset[1].toString() + reset[2].toString(), "resetPartial");
        QCOMPARE(keysOf(reset[3]), describedKeys(false));
        QCOMPARE(faultOfChanges(), QString());
        QCOMPARE(client->property("Progress")["data"].toDouble(), 1.0);
        lastOnesStay();
    }

    /// As the Scheduler's own list has it.
    void nextSave()
    {
        QVERIFY(startOn("directory"));
        const auto due = [this] {
            const QString tasks = device->result("printTasks", {}, "Scheduler").toString();
            const QDateTime next = QDateTime::fromString(tasks.section("next: ", -1).trimmed(), Qt::ISODate);
            return next.isValid() ? next.toSecsSinceEpoch() : 0;
        };
        const auto set = [this](const char *name, const char *value) {
            device->call("setSettingValue", {QString("SaveRestore") + name, value}, "SettingsManager");
        };
        const auto told = [this] { return client->property("NextSave")["data"].toInteger(); };
        QCOMPARE(told(), 0);
        set("ScheduleType", "2");
        for (const char *hour : {"24", "1", "12"}) {
            set("Schedule", hour);
            QVERIFY(due() > QDateTime::currentSecsSinceEpoch());
            QCOMPARE(told(), due());
        }
        set("ScheduleType", "1");
        for (const char *period : {"1", "5", "24"}) {
            set("Schedule", period);
            QVERIFY(due() > 0);
            QCOMPARE(told(), due());
        }
        const QVariantList odd[] = {{30, 0, false, true}, {-5, 0, false, true}, {7, 75, false, true}};
        for (const QVariantList &wish : odd) {
            device->call("setSaveFrequency", wish);
            QCOMPARE(due(), 0);
            QCOMPARE(told(), 0);
            device->call("setSaveFrequency", {7, 5, false, true});
            QCOMPARE(told(), due());
        }
        set("ScheduleType", "0");
        QCOMPARE(told(), 0);
    }

    /// Who only looks does not make the night's save fail.
    void scheduledSaveWaits()
    {
        QVERIFY(startOn("server") && save());
        changeData("new");
        const QString held = beginHeld("GET A.cksum", "Verify");
        device->call("startSaveOnRepository", {1});
        QCOMPARE(popUps.size(), 0);
        store->release();
        QCOMPARE(client->end(held)["signal"].toString(), "verify Success");
        QCOMPARE(client->end("(uint32 3,)")["signal"].toString(), "save Success");
        QVERIFY(holds("A", "f", "new"));
    }

    /// What a quick verify does not look at stays known, for a save that repairs.
    void repair()
    {
        QVERIFY(startOn("directory") && save());
        const QByteArray sound = device->entry("A++z.tar.gz");
        device->write("media/repository/A++z.tar.gz", "damaged");
        QCOMPARE(client->code("Verify"), "Success");
        QCOMPARE(client->code("Verify", "{'full': <true>}"), "Damaged");
        QCOMPARE(client->property("Progress")["data"].toDouble(), 1.0);
        QCOMPARE(client->code("Verify"), "Success");
        QCOMPARE(changesOf(job("Save")), "");
        QCOMPARE(changesOf(job("Save", "{'repair': <true>}")), "A z sent");
        QCOMPARE(client->code("Verify", "{'full': <true>}"), "Success");
        QCOMPARE(device->entry("A++z.tar.gz"), sound);
    }

    /// One that is not there meanwhile keeps what was saved of it.
    void saveOfOneLeavesOthers()
    {
        QVERIFY(startOn("directory") && save());
        QFile::remove(device->path("etc/VYXApplication/module/B/restorable.xml"));
        changeData("new");
        QCOMPARE(changesOf(job("Save", "{'modules': <['Dependent']>}")),
                 "A d sent, A f sent, A z sent, Dependent g sent");
        QVERIFY(holds("B", "h", "old") && device->entry("modules-list.sav").contains("B"));
        QCOMPARE(client->code("Save"), "Success");
        QVERIFY(!device->entry("modules-list.sav").contains("B"));
    }
};

QTEST_GUILESS_MAIN(tst_control)
#include "tst_control.moc"
