#include "restorable/RestorableListing.h"
#include "restorable/SaveGroups.h"
#include "tests/support/Files.h"

#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTest>

class tst_description : public QObject
{
    Q_OBJECT

    QTemporaryDir root;

    QString dataPath(const QString &item) const { return root.path() + "/data/VYXApplication/m/" + item; }

    RestorableObject parse(const QByteArray &text, const QString &name = "m") const
    {
        const QString file = root.path() + "/restorable.xml";
        writeFile(file, text);
        return {name, "2", "1.3", "77", file};
    }

    RestorableObject module(const QString &name, const QStringList &dependencies) const
    {
        QByteArray children;
        for (const QString &dependency : dependencies) {
            children += "<dependency>" + dependency.toUtf8() + "</dependency>";
        }
        writeFile(root.path() + "/data/VYXApplication/" + name + "/d.data", {});
        return parse("<r><databases><database name='d'>" + children + "</database></databases></r>", name);
    }

private Q_SLOTS:
    void initTestCase()
    {
        qputenv("VYX_DEVICE_ROOT", root.path().toUtf8());
        for (const char *item : {"main.data", "extra.data", "conf/a.xml"}) {
            writeFile(dataPath(item), {});
        }
        QDir().mkpath(dataPath("logs"));
    }

    void bounds()
    {
        const auto files = [&](const QByteArray &content) {
            return parse("<r><files>" + content + "</files></r>").getFiles().size();
        };
        QByteArray many;
        for (int number = 0; number < 4998; ++number) {
            many += "<file>" + QByteArray::number(number) + "</file>";
        }
        const QByteArray deep = QByteArray("<x>").repeated(18) + QByteArray("</x>").repeated(18);
        const QByteArray far = QByteArray("<x>").repeated(150000) + QByteArray("</x>").repeated(150000);
        QCOMPARE(files(many), 4998);
        QCOMPARE(files(many + "<x/>"), 0);
        QCOMPARE(files("<file>a</file>" + deep), 1);
        QCOMPARE(files("<file>a</file><x>" + deep + "</x>"), 0);
        QCOMPARE(files("<file>a</file>" + far), 0);
        QCOMPARE(files("<file>a</file>" + QByteArray(1048000, ' ')), 1);
        QCOMPARE(files("<file>a</file>" + QByteArray(1049000, ' ')), 0);
        QCOMPARE(
            files("<file>" + QByteArray(3800, 'x') + "</file><file>" + QByteArray(3801, 'x') + "</file>"), 1);
        const QByteArray entities = "<!DOCTYPE r [<!ENTITY a '" + QByteArray(1000, 'x') + "'><!ENTITY b '" +
                                    QByteArray("&a;").repeated(1000) +
                                    "'>]><r><files><file>&b;</file></files></r>";
        QCOMPARE(parse(entities).getFiles().size(), 0);
    }

    void everything()
    {
        const RestorableObject object = parse(R"(<anything><!-- text -->
            <databases><dependency>Ignored</dependency>
              <database name="main" priority="low"><dependency>B</dependency>
                <sql-command table-name="t">SELECT 1</sql-command><sql-command table-name="u">SELECT 2</sql-command>
                <unknown><dependency>No</dependency></unknown></database>
              <database name="gone"><dependency>C</dependency></database></databases>
            <files><file priority="normal" zip="true">logs/</file><file zip="TRUE">conf//a.xml</file>
              <file priority="High">missing.txt</file><file priority="low" zip="1">logs/../x</file></files>
            <databases><database name="extra"/></databases>
            <reset-to-default><sql-command>DELETE FROM x</sql-command></reset-to-default></anything>)");
        QCOMPARE(object.getDependencies(), QStringList{"B"});
        QCOMPARE(object.getMissingDatabases(), QStringList{"gone"});
        QCOMPARE(object.getDatabases().size(), 2);
        QCOMPARE(object.getDatabases().at(0).getPriority(), RestorableObject::low);
        QCOMPARE(object.getDatabases().at(1).getPriority(), RestorableObject::high);
        QCOMPARE(restorableListing({object}),
                 "Module: 'm', version: '2::1.3', pid: '77'\n"
                 "Dependencies: B\n"
                 "Databases: \n"
                 "\t'main', save command: 'SELECT 1 SELECT 2 ', priority: 'low'\n"
                 "\t'extra', save command: 'full', priority: 'high'\n"
                 "Files: \n"
                 "\t'conf/a.xml', zipped: 'false', priority: 'high'\n"
                 "\t'missing.txt', zipped: 'false', priority: 'high'\n"
                 "Directories: \n"
                 "\t'logs', zipped: 'true', priority: 'normal'\n"
                 "\n"
                 "Reset to factory: none\n"
                 "Reset to default: \n"
                 "\t'', sql command: 'DELETE FROM x'\n");
    }

    void brokenFiles()
    {
        const QByteArray entityBomb =
            "<!DOCTYPE r [<!ENTITY a 'xxxxxxxxxxxxxxxxxxxx'><!ENTITY b '&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;'>"
            "<!ENTITY c '&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;'><!ENTITY d '&c;&c;&c;&c;&c;&c;&c;&c;&c;&c;'>"
            "<!ENTITY e '&d;&d;&d;&d;&d;&d;&d;&d;&d;&d;'>]><r><files><file>&e;</file></files></r>";
        const QByteArray namesThatLeadOutside =
            "<r><databases><database name='../m/main'/><database name=''/><database name='a/b'/></databases>"
            "<files><file>/etc/passwd</file><file>../n/x</file><file></file><file>a\tb</file></files></r>";
        for (const QByteArray &text :
             {QByteArray(), QByteArray("PK\x03\x04 garbage"), QByteArray("<r><files><file>conf/a.xml</file>"),
              entityBomb, namesThatLeadOutside}) {
            const RestorableObject object = parse(text);
            QVERIFY2(object.getName() == "m" && !object.hasItems(), "text: " + text);
            QVERIFY2(restorableListing({object}).contains("Files: none\nDirectories: none\n"),
                     "text: " + text);
        }
    }

    void groups()
    {
        using Modules = QList<QStringList>; // name, then dependencies
        const QList<std::tuple<const char *, Modules, SaveGroups>> cases = {
            {"apart", {{"a"}, {"b"}}, {{"a"}, {"b"}}},
            {"dependency", {{"a", "b"}, {"b"}, {"c"}}, {{"a", "b"}, {"c"}}},
            {"on an unknown module", {{"a", "x"}, {"b"}}, {{"a", "x"}, {"b"}}},
            // "c" moves into the place of the merged group, is not looked at, and takes the first group in
            // its own round.
            {"chain", {{"a", "b"}, {"b", "c"}, {"c"}}, {{"c", "a", "b"}}},
            {"last on first", {{"a"}, {"b"}, {"c", "a", "b"}}, {{"b", "a", "c"}}},
            {"twice", Modules{{"a", "b", "b"}}, SaveGroups{{"a", "b"}}}};
        for (const auto &[name, modules, groups] : cases) {
            QList<RestorableObject> objects;
            for (const QStringList &entry : modules) {
                objects << module(entry.first(), entry.mid(1));
            }
            objects << parse("<r/>", "empty");
            const SaveGroups computed = computeGroups(objects);
            QVERIFY2(computed == groups, name);
            QVERIFY2(haveGroups(objects, computed), name);
            QVERIFY2(!haveGroups(objects << module("late", {"a"}), computed), name);
        }
    }
};

QTEST_GUILESS_MAIN(tst_description)
#include "tst_description.moc"
