#include "catalogue/ChecksumComparison.h"
#include "catalogue/ItemNames.h"
#include "catalogue/SavedEntries.h"
#include "catalogue/SavedItem.h"
#include "commands/Digest.h"
#include "commands/StreamDigest.h"
#include "pause/PauseState.h"
#include "platform/Beneath.h"
#include "platform/core/Waiter.h"
#include "platform/logger/LogFields.h"
#include "repository/RepositoryUrl.h"
#include "restorable/RestorableListing.h"
#include "restorable/SaveGroups.h"
#include "save/CompletedLines.h"
#include "service/SaveSchedule.h"
#include "tests/support/TestDevice.h"

#include <QCryptographicHash>
#include <QTest>

#include <algorithm>
#include <array>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

constexpr auto lines = &parseChecksumLines;

/// What neither a bus nor a repository is needed for.
class tst_values : public QObject
{
    Q_OBJECT

    QTemporaryDir root;

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

    /// What the journal would get: a datagram, or the sealed file that came with it.
    static QByteArray received(int socket)
    {
        QByteArray entry(100000, 0);
        alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control = {};
        iovec part = {entry.data(), static_cast<size_t>(entry.size())};
        msghdr message = {nullptr, 0, &part, 1, control.data(), control.size(), 0};
        entry.truncate(recvmsg(socket, &message, MSG_DONTWAIT));
        const cmsghdr *const header = CMSG_FIRSTHDR(&message);
        if (header == nullptr) {
            return entry;
        }
        int file = -1;
        memcpy(&file, CMSG_DATA(header), sizeof(file));
        constexpr int seals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL;
        QFile reader;
        const bool sealed = fcntl(file, F_GET_SEALS) == seals && lseek(file, 0, SEEK_SET) == 0;
        return sealed && reader.open(file, QIODevice::ReadOnly, QFile::AutoCloseHandle) ? reader.readAll()
                                                                                        : "not sealed";
    }

    /// As the journal takes an entry apart.
    static QByteArrayList fieldsOf(QByteArray entry)
    {
        QByteArrayList fields;
        while (!entry.isEmpty()) {
            const qsizetype line = entry.indexOf('\n');
            const qsizetype equals = entry.left(line).indexOf('=');
            quint64 size = equals < 0 ? 0 : quint64(line - equals - 1);
            const qsizetype begin = equals < 0 ? line + 1 + qsizetype(sizeof(size)) : equals + 1;
            if (equals < 0) {
                memcpy(&size, entry.constData() + line + 1, sizeof(size));
            }
            fields << entry.left(equals < 0 ? line : equals) + ": " + entry.mid(begin, qsizetype(size));
            entry.remove(0, begin + qsizetype(size) + 1);
        }
        return fields;
    }

private Q_SLOTS:
    void initTestCase()
    {
        qputenv("VYX_DEVICE_ROOT", root.path().toUtf8());
        const QString make = "cd '%1'; mkdir -p data/VYXApplication/m; cd data/*/m; mkdir conf logs; ";
        TestDevice::shell(make.arg(root.path()) + "touch main.data extra.data conf/a.xml");
    }

    void journal()
    {
        const QByteArray path = root.filePath("journal").toUtf8();
        const JournalSocket journal(path);
        QVERIFY(!journal.send({{"MESSAGE", "nobody listens"}}));
        const Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        sockaddr_un address = {AF_UNIX, {}};
        memcpy(address.sun_path, path.constData(), size_t(path.size()));
        QCOMPARE(bind(socket.number(), reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
        const LogFields operation({{"VYX_OPERATION", "save"}, {"VYX_CODE", "none"}});
        for (const QByteArray &text : {QByteArray("plain = usual"), QByteArray("x\nVYX_CODE=Success\n"),
                                       QByteArray(), QByteArray(3000000, 'x') + "\n"}) {
            const LogFields item("A", "a\nVYX_MODULE=B");
            JournalSocket::Fields beside;
            Waiter().runBeside([&] { beside = LogFields::current(); });
            QVERIFY(journal.send(JournalSocket::Fields{{"MESSAGE", text}} + beside));
            QCOMPARE(fieldsOf(received(socket.number())),
                     QByteArrayList({"MESSAGE: " + text, "VYX_OPERATION: save", "VYX_CODE: none",
                                     "VYX_MODULE: A", "VYX_ITEM: a\nVYX_MODULE=B"}));
        }
        const LogFields end(JournalSocket::Fields{{"VYX_CODE", "Partial"}});
        QVERIFY(LogFields::current() ==
                JournalSocket::Fields({{"VYX_OPERATION", "save"}, {"VYX_CODE", "Partial"}}));
    }

    void digests()
    {
        const QTemporaryDir place;
        Waiter waiter;
        writeFile(place.filePath("file"), QByteArray(5000000, 'x'));
        QCOMPARE(fileDigest(waiter, place.filePath("file")), "9dff3479548c346bbeeeab2c23af22fd");
        QVERIFY(QFile::link("file", place.filePath("link")));
        for (const char *refused : {"link", "", "nothing"}) {
            QCOMPARE(fileDigest(waiter, place.filePath(refused)), QString());
        }
    }

    void itemPaths()
    {
        QCOMPARE(ItemNames::normalizedItemPath("a//b///"), "a/b");
        QCOMPARE(ItemNames::normalizedItemPath("./a..b/..c"), "a..b/..c");
        for (const char *refused : {"/etc/passwd", "../x", "a/../../x", "a/..", "", ".", "//", "a\tb", "a\nb",
                                    "a/.saverestore-x/b"}) {
            QCOMPARE(ItemNames::normalizedItemPath(refused), QString());
        }
    }

    /// More streams than have threads beside, some begun anew in the middle.
    void digestsOfStreams()
    {
        QByteArray bytes(20'000'003, 'x');
        for (qsizetype index = 0; index < bytes.size(); index += 4099) {
            bytes[index] = static_cast<char>(index);
        }
        std::array<StreamDigest, 6> streams;
        for (size_t number = 0; number < streams.size(); ++number) {
            StreamDigest &stream = streams.at(number);
            stream.reset(bytes.size());
            stream.add(QByteArrayView(bytes).first(number % 2 == 0 ? 0 : 300'000));
            stream.reset(number % 2 == 0 ? bytes.size() : 0);
            for (qsizetype begin = 0; begin < bytes.size(); begin += 70'001) {
                stream.add(
                    QByteArrayView(bytes).sliced(begin, std::min<qsizetype>(70'001, bytes.size() - begin)));
            }
        }
        const QString expected =
            QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Md5).toHex());
        QVERIFY(
            std::ranges::all_of(streams, [&](StreamDigest &stream) { return stream.result() == expected; }));
    }

    void itemsAndTheirNames()
    {
        const QByteArray database = "\t1\tdatabase\thigh\n";
        const QByteArray directory = "\t1\tdirectory\t1\tlow\n";
        const QByteArray file = "\t1\tfile\tfalse\tnormal\n";
        // a line of module m, and the item's path and entry
        const QList<std::tuple<QByteArray, QString, QString>> cases = {
            {"m/a.data" + database, "a", "m++a.dump.gz"},
            {"m/a.b.data" + database, "a.b", "m++a.b.dump.gz"},
            {"m/conf.tar" + directory, "conf", "m++conf.tar.gz"},
            {"m/conf.d.tar" + directory, "conf.d", "m++conf.d.tar.gz"},
            {"m/Å/l (1).tar" + directory, "Å/l (1)", "m++Å++l (1).tar.gz"},
            {"backup.tar" + file, "backup.tar", "backup.tar"},
            {"m/a.data" + file, "m/a.data", "m++a.data"}};
        for (const auto &[text, path, entry] : cases) {
            const ChecksumLine line = lines(text).first();
            const auto item = SavedItem::parse("m", line);
            QVERIFY2(item, text);
            QCOMPARE(item->getPath(), path);
            QCOMPARE(item->entryNames().first(), entry);
            QCOMPARE(item->key() + item->getPriority(), line.key() + line.priority());
        }
        for (const QByteArray &none :
             {"n/a.data" + database, "m/.data" + database, "m/a/b.data" + database, "m/a.tar" + database,
              "m/../a.tar" + directory, "m/.tar" + directory, "m/a/.tar" + directory, "/etc/x" + file,
              "../x" + file, "m/a.tar\t1\tlink\thigh\n" + file, ".saverestore-format" + file}) {
            QVERIFY2(!SavedItem::parse("m", lines(none).first()), none);
        }
    }

    void entryNames()
    {
        // "key=entry" of files, "key=entry=kind" of others
        const QMap<QString, QString> cases = {
            {"a", "x=a++x conf/s=a++conf++s only/deep/f=only++deep++f modules-list.sav=a++modules-list.sav "
                  "d.dump.gz=a++d.dump.gz"},
            {"b", "x=b++x conf/s=b++conf++s b/d=b++d b/d.data=b++d.dump.gz=database d.dump.gz=b++d.dump.gz% "
                  "only/deep=only++deep"},
            // what module b's file is renamed to, claimed by another
            {"c", "b/x=c++b++x c++own=c++own"},
            {"d", "b++d.dump.gz=d++b++d.dump.gz"},
            // names that cannot be told apart by "++" alone
            {"e", "p/q=e++p++q% p++q=e++p%2B%2Bq% p%2B%2Bq=p%2B%2Bq e/p/q.tar=e++p++q%.tar.gz=directory\t1 "
                  "e/p++q.tar=e++p%2B%2Bq%.tar.gz=directory\t1 e/f++g.data=e++f%2B%2Bg%.dump.gz=database"},
            {"e++f", "e++f/g.data=e%2B%2Bf++g%.dump.gz=database g=e++f++g"},
            {"f", "g=f++g e++f/g=f++e++f++g"}};
        LinesByModule modules;
        for (const auto &[module, items] : cases.asKeyValueRange()) {
            QString text;
            for (const QString &item : items.split(' ')) {
                const QString kind = item.section('=', 2);
                text += item.section('=', 0, 0) + "\t1\t" + (kind.isEmpty() ? "file" : kind) + "\thigh\n";
            }
            modules[module] = lines(text.toUtf8());
        }
        const SavedEntries entries(modules);
        for (const auto &[module, linesOfModule] : modules.asKeyValueRange()) {
            for (qsizetype index = 0; index < linesOfModule.size(); ++index) {
                QCOMPARE(entries.entry(module, linesOfModule[index]),
                         cases[module].section(' ', index, index).section('=', 1, 1));
            }
        }
        QCOMPARE(entries.names().size(), 24);
    }

    void checksumLines()
    {
        QCOMPARE(lines("a\t1\tfile\nb\t2\n").size(), 2);
        QCOMPARE(lines("a\t1\nb\nc\t3\n").size(), 1);
        QCOMPARE(lines("a\t1\n\nc\t3\n").size(), 1);
        QCOMPARE(lines("a\t\tfile\thigh\nb\t2").size(), 2);
        QCOMPARE(lines("a\t1\tfile\thigh\r\n").first().priority(), "high");
    }

    void comparison()
    {
        const ChecksumLines local =
            lines("a\t1\tfile\tnormal\nb\t1\tfile\tlow\nmine\t1\tfile\thigh\nb\t2\tfile\tlow\n");
        const ChecksumLines saved =
            lines("a\t1\tfile\thigh\nb\t1\tfile\thigh\ntheirs\t1\tdirectory\t1\tlow\n");
        for (const bool forSave : {true, false}) {
            const ChecksumEntries entries = compareChecksumLines(local, saved, forSave);
            QCOMPARE(entries.size(), 4);
            QCOMPARE(entries["a"].status, Same);
            QCOMPARE(entries["a"].priority, "normal");
            QCOMPARE(entries["b"].status, Updated);
            QCOMPARE(entries["mine"].status, forSave ? Deleted : New);
            QCOMPARE(entries["directory\ttheirs"].status, forSave ? Deleted : New);
            QCOMPARE(entries["directory\ttheirs"].kind, "directory");
        }
    }

    void completion()
    {
        const QByteArray unreadable = "a\t\tfile\tfalse\thigh\n";
        const QByteArray old = "a\t7\tfile\tfalse\thigh\n";
        const QByteArray low = "a\t7\tfile\tfalse\tlow\n";
        const QByteArray other = "b\t8\tfile\tfalse\thigh\n";
        const QByteArray archive = "m/d.tar\t7\tdirectory\t1\thigh\n";
        const QByteArray inside = "d/x\t7\tfile\tfalse\thigh\n";
        // what was staged, what the repository has, and the completed lines
        const QList<std::tuple<const char *, QByteArray, QByteArray, QByteArray>> cases = {
            {"unreadable tonight", unreadable, old, old},
            {"never seen", unreadable + other, "", other},
            {"removed", "", old, ""},
            {"its pass did not run", "", low, low},
            {"now of another priority", old, low, old},
            {"directory gone", "d\t\tfile\tfalse\thigh\n", inside + "d2/x\t7\tfile\tfalse\thigh\n", inside},
            {"zipped directory gone", "d\t\tfile\ttrue\thigh\n", archive, archive}};
        for (const auto &[name, staged, previous, completed] : cases) {
            const auto result = completeLines("m", lines(staged), lines(previous), {"high"});
            QVERIFY2(result.lines == lines(completed), name);
        }
    }

    void hoursOfEveryPeriod()
    {
        QCOMPARE(scheduledHours(3, false, 10).value(), QList<int>{3});
        QCOMPARE(scheduledHours(6, true, 10).value(), QList<int>({11, 17, 23, 5}));
        QCOMPARE(scheduledHours(24, true, 23).value(), QList<int>({24, 0}));
        QCOMPARE(scheduledHours(12, true, 0).value(), QList<int>({1, 13}));
        QCOMPARE(scheduledHours(1, true, 22).value().size(), 25);
        QCOMPARE(scheduledHours(INT_MAX, true, 5).value(), QList<int>{6});
        QVERIFY(!scheduledHours(0, true, 5) && !scheduledHours(-1, true, 5));
    }

    void urlsAsShown()
    {
        const QString unreadable = "(unreadable URL)";
        // the URL, what is shown of it, whether it is secure and whether it is distant
        const QList<std::tuple<QString, QString, bool, bool>> cases = {
            {"/data/httpdump", "/data/httpdump", false, false},
            {"/media/u@h:x", "/media/u@h:x", false, false},
            {"http://host/https", "http://host/https", false, true},
            {"HTTPS://u:secret@h/save", "https://h/save", true, true},
            {"https://u:sec/ret@h/save", unreadable, true, true},
            {"https://u:1/secret@h/save", unreadable, true, true},
            {"https:u:secret@h", unreadable, true, true},
            {"ftp://u:secret@h/x", "ftp://h/x", false, false},
            {"u:secret@h/x", unreadable, false, false},
            {"https://", unreadable, true, true},
            {"", "", false, false}};
        for (const auto &[url, shown, secure, distant] : cases) {
            QCOMPARE(RepositoryUrl::forDisplay(url), shown);
            QVERIFY2(RepositoryUrl::isSecure(url) == secure, qPrintable(url));
            QVERIFY2(RepositoryUrl::isDistant(url) == distant, qPrintable(url));
        }
    }

    void processIds()
    {
        for (const char *pid : {"", "0", "1", "-5", "abc", "12 34", "99999999999"}) {
            QVERIFY2(!isProcessId(pid), pid);
        }
        QVERIFY(isProcessId("2"));
        QCOMPARE(stateOfStatLine("12 (ab) S 1"), "S");
        QCOMPARE(stateOfStatLine("12 (a b) x (y) T 1"), "T");
        QCOMPARE(stateOfStatLine("12 (ab)"), "");
        QCOMPARE(stateOfStatLine(""), "");
        QVERIFY(isPausedState("t") && isPausedState("T") && !isPausedState("Z") && !isPausedState(""));
    }

    void description()
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
        QCOMPARE(object.getMissingDatabases(), QStringList{"gone"});
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

    void brokenDescriptions()
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

    void boundsOfDescriptions()
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

    void saveGroups()
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

    /// What opens below a directory and what does not, by both ways to look up.
    void openingBeneath()
    {
        using State = Beneath::State;
        const QTemporaryDir place;
        const QString root = place.path() + "/root";
        TestDevice::shell(
            "cd " + place.path() +
            " && mkdir -p root/dir root/closed secret && cd root && "
            "printf inside | tee dir/file >../secret/file && ln -s dir/file near && ln -s dir linked && "
            "ln -s $PWD/dir/file absolute && ln -s ../secret far && ln -s $PWD/../secret/file stolen && "
            "ln -s /proc/self/root/etc/passwd magic && ln -s circle circle && mkfifo pipe && chmod 0 closed");
        for (const auto lookup : {Beneath::Lookup::Whole, Beneath::Lookup::Stepwise}) {
            const Beneath beneath(root, lookup);
            for (const char *path : {"dir/file", "near", "absolute", "linked/file", "dir//./file"}) {
                std::array<char, 6> content = {};
                QVERIFY2(read(beneath.openRegular(path).descriptor.number(), content.data(), 6) == 6, path);
            }
            for (const char *path : {"far", "far/file", "stolen", "magic", "..", "../secret/file"}) {
                QVERIFY2(beneath.openRegular(path).state == State::LeadsOut, path);
            }
            QCOMPARE(namesIn(beneath.openDirectory("linked").descriptor).value(), QByteArrayList{"file"});
            QCOMPARE(namesIn(beneath.openDirectory("").descriptor).value().join(' '),
                     "absolute circle closed dir far linked magic near pipe stolen");
            QCOMPARE(beneath.openDirectory("pipe").state, State::WrongKind);
            QCOMPARE(beneath.openRegular("pipe").state, State::WrongKind);
            QCOMPARE(beneath.openRegular("dir/file/x").state, State::Missing);
            QVERIFY(!beneath.openRegular("circle").descriptor.isOpen());
            QCOMPARE(Beneath(root + "/linked", lookup).rootState(), State::LeadsOut);
            // The superuser may read everything.
            QVERIFY(getuid() != 0 || seteuid(65534) == 0);
            const State closed = beneath.openDirectory("closed").state;
            QVERIFY(getuid() != 0 || seteuid(0) == 0);
            QCOMPARE(closed, State::Unreadable);
        }
    }
};

QTEST_GUILESS_MAIN(tst_values)
#include "tst_values.moc"
