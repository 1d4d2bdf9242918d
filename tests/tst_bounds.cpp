#include "catalogue/ChecksumFile.h"
#include "catalogue/ModulesList.h"
#include "commands/FedCommand.h"
#include "commands/StreamedCommand.h"
#include "pause/PauseRecord.h"
#include "platform/DevicePaths.h"
#include "repository/DistantRepository.h"
#include "repository/LocalRepository.h"
#include "tests/support/DataTable.h"
#include "tests/support/RepositoryTest.h"

#include <QElapsedTimer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <sys/resource.h>

using namespace std::chrono_literals;

/// What a server answers, whatever it is asked.
struct Answer
{
    QByteArray head;
    QByteArray again; ///< what follows for ever
    int interval = 0; ///< between two of these, in ms; negative for a server that reads and says nothing
};

/// What comes from outside without measure: each is refused in bounded time and memory, with a text.
class tst_bounds : public RepositoryTest
{
    Q_OBJECT

    QTcpServer server;
    Answer given;

    /// The most memory that this process had, in MB.
    static qint64 memory()
    {
        rusage usage = {};
        getrusage(RUSAGE_SELF, &usage);
        return freedMemoryIsKept ? 0 : usage.ru_maxrss / 1000;
    }

    void answer(QTcpSocket &socket)
    {
        if (given.interval < 0) {
            return;
        }
        socket.readAll();
        if (socket.findChild<QTimer *>() != nullptr) {
            return;
        }
        socket.write(given.head);
        auto *const timer = new QTimer(&socket);
        timer->start(given.interval);
        connect(timer, &QTimer::timeout, &socket, [&] {
            if (socket.bytesToWrite() < 1000000) {
                socket.write(given.again);
            }
        });
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(server.listen(QHostAddress::LocalHost));
        connect(&server, &QTcpServer::newConnection, this, [this] {
            QTcpSocket *const socket = server.nextPendingConnection();
            socket->setReadBufferSize(given.interval < 0 ? 1000 : 0);
            connect(socket, &QTcpSocket::readyRead, this, [=, this] { answer(*socket); });
            connect(socket, &QTcpSocket::disconnected, socket, &QTcpSocket::deleteLater);
        });
    }
    void init() { startAfresh(); }

    void uploadThatNobodyReads()
    {
        given = {{}, {}, -1};
        DistantRepository repository(QString("http://127.0.0.1:%1/s").arg(server.serverPort()));
        repository.setRateWindow(400ms);
        QCOMPARE(ask(repository, Method::Put, "e", file("big", QByteArray(30000000, 'b'))), "failed");
        QCOMPARE(reason, "The transfer is slower than 1000 bytes per second");
    }

    void entriesOfADirectory()
    {
        struct Case
        {
            qint64 size, largest;
            QString reason;
        };
        const QList<Case> cases = {{0, 4096, ""},
                                   {4096, 4096, ""},
                                   {4097, 4096, "Entry 'e' is refused: it has more than 4096 bytes"},
                                   {qint64{1} << 43, 0, "Entry 'e' is refused: it has more than "}};
        LocalRepository repository(local->path());
        for (const auto &[size, largest, expected] : cases) {
            QVERIFY(QFile::resize(file("e"), size));
            repository.submit({Method::Get, "e", file("back", "old"), {}, largest}, noted("e"));
            QVERIFY(finished(repository));
            QVERIFY2(reason.contains(expected) && reason.isEmpty() == expected.isEmpty(), qPrintable(reason));
            QCOMPARE(QFileInfo(local->filePath("back")).size(), expected.isEmpty() ? size : 3);
        }
    }

    void checksumFiles()
    {
        struct Case
        {
            QByteArray text;
            qsizetype lines; ///< negative when it is refused
        };
        const QByteArray line = "k\td\n";
        const qsizetype most = mostChecksumLines;
        const auto key = [](qsizetype length) { return QByteArray(length, 'k'); };
        const QByteArray longest = key(longestChecksumKey) + "\t" + key(longestChecksumLine - 4097);
        const QList<Case> cases = {{line.repeated(most), most},
                                   {line.repeated(most) + "end\n" + line, most},
                                   {line.repeated(most + 1), -1},
                                   {longest + "\r\n" + line, 2},
                                   {longest + "x\n" + line, -1},
                                   {key(longestChecksumKey + 1) + "\td\n", -1},
                                   {key(100000000), -1},
                                   {line + key(largestChecksumFile), -1},
                                   {key(longestChecksumLine + 1) + "\n" + line, -1},
                                   {(key(4000) + "\td\n").repeated(5000), -1},
                                   {"a\tb\tc\td\te\tf\n" + line, 2},
                                   {"a\tb\tc\td\te\tf\tg\n", -1}};
        QElapsedTimer timer;
        for (qsizetype number = 0; number < cases.size(); ++number) {
            const QString path = file("c", cases.at(number).text);
            const qint64 before = memory();
            timer.start();
            ChecksumSize size = {0, 1};
            QVERIFY(!readChecksumFile(path, size) || cases.at(number).lines < most);
            size.lines = 0;
            const auto lines = readChecksumFile(path, size);
            QVERIFY2(timer.elapsed() < 3000 && memory() - before < 100, qPrintable(QString::number(number)));
            QCOMPARE(lines ? lines->size() : -1, cases.at(number).lines);
            QCOMPARE(size.lines, std::max(cases.at(number).lines, qsizetype{0}));
            QCOMPARE(parseChecksumLines(cases.at(number).text).size(), size.lines);
        }
        file("c", line);
        QVERIFY(!writeChecksumFile(local->filePath("c"), ChecksumLines(most + 1, ChecksumLine({"k", "d"}))));
        QCOMPARE(content("c"), line);
        QVERIFY(writeChecksumFile(local->filePath("c"), ChecksumLines(most, ChecksumLine({"k", "d"}))));
        QCOMPARE(content("c"), line.repeated(most));
    }

    void noteOfPausedModules()
    {
        qputenv("VYX_DEVICE_ROOT", local->path().toUtf8());
        const QString note = DevicePaths::pauseRecord();
        const QByteArray line = "m\t1\t2\n";
        const QString target = file("target", line);
        writeFile(note, line.repeated(2));
        QCOMPARE(PauseRecord::read().size(), 2);
        for (const QString &make :
             {"ln -s " + target, QString("mkfifo"), QString("truncate -s 1048577"), QString("mkdir")}) {
            QCOMPARE(TestDevice::shell("rm -rf " + note + "; " + make + " " + note), "");
            QVERIFY2(PauseRecord::read().isEmpty(), qPrintable(make));
        }
    }

    void outputOfAChild()
    {
        Waiter waiter;
        QCOMPARE(runCommand(waiter, "/bin/sh", {"-c", "head -c 1048576 /dev/zero"}).output.size(), 1048576);
        const qint64 before = memory();
        const CommandResult endless = runCommand(waiter, "/bin/sh", {"-c", "yes"});
        QVERIFY(!endless.succeeded() && endless.output.isEmpty());
        QCOMPARE(endless.errorText, "it printed more than 1048576 bytes");
        const CommandResult loud = runCommand(waiter, "/bin/sh", {"-c", "head -c 100000000 /dev/zero >&2"});
        QVERIFY(loud.succeeded() && loud.errorText.size() <= 65536 && memory() - before < 50);
        const CommandLimits limits = {10s, 1s, 1000, 100000000};
        for (const char *greedy :
             {"while :; do :; done", "head -c 2000 /dev/zero >file; test -s file && exit 1",
              "awk 'BEGIN {x = \"x\"; for (;;) x = x x}'"}) {
            const QString line = "cd " + local->path() + "; " + greedy;
            QVERIFY2(
                !runStreamed(waiter, "/bin/sh", {"-c", line}, limits, [](QByteArrayView) { return true; })
                     .succeeded(),
                greedy);
        }
        QVERIFY(QFileInfo(local->filePath("file")).size() <= 1000);
    }

    void inputOfAChild_data()
    {
        // what the child does; what comes of it, and whether all was taken
        columns<QString, QString, bool>("line", "result", "all");
        row("reads all", QString("[ $(wc -c) = 3000000 ] && exit 7"), QString("7: "), true);
        row("says why", QString("cat >/dev/null; head -c 9000000 /dev/zero | tr '\\0' e >&2"),
            "0: " + QString(4096, 'e'), true);
        row("says much before it reads", QString("head -c 9000000 /dev/zero >&2; [ $(wc -c) = 3000000 ]"),
            "0: " + QString(4096, QChar(0)), true);
        row("ends early", QString("head -c 10 >/dev/null; echo why >&2; exit 3"), QString("3: why"), false);
        row("is killed", QString("kill -9 $$"), QString("-: "), false);
        row("does not read", QString("exec sleep 60"), QString("-: time limit reached"), false);
        row("does not end", QString("cat >/dev/null; exec >&- 2>&-; sleep 60"),
            QString("-: time limit reached"), true);
        row("leaves a child", QString("sleep 60 & cat >/dev/null"), QString("0: "), true);
        row("has a child that does not read", QString("sleep 60; cat"), QString("-: time limit reached"),
            false);
    }
    void inputOfAChild()
    {
        QFETCH(QString, line);
        QFETCH(QString, result);
        QFETCH(bool, all);
        Waiter waiter;
        QElapsedTimer timer;
        timer.start();
        bool taken = true;
        CommandResult found;
        const auto feed = [&](const Feed &send) {
            for (int number = 0; number < 30; ++number) {
                taken = taken && send(QByteArray(100000, 'x'));
            }
            return true;
        };
        waiter.runBeside([&] { found = runFed(waiter, "/bin/sh", {"-c", line}, {2s, 2s, 1000}, feed); });
        QCOMPARE((found.finished ? QString::number(found.exitCode) : QString("-")) + ": " + found.errorText,
                 result);
        QCOMPARE(taken, all);
        QVERIFY(timer.elapsed() < 4000);
    }

    void fedChildIsEnded()
    {
        const auto children = [] { return TestDevice::shell("pgrep -fx 'sleep 61'"); };
        for (const bool refused : {true, false}) {
            Waiter waiter;
            const QObject untilHere;
            CommandResult result;
            const auto feed = [&](const Feed &send) {
                while (send("x") && !refused) {
                }
                return !refused;
            };
            QTimer::singleShot(300ms, &untilHere, [&] { waiter.end(Waiter::End::RepositoryChanged); });
            waiter.runBeside([&] {
                result = runFed(waiter, "/bin/sh", {"-c", "sleep 61; cat"}, {20s, 20s, 1000}, feed);
            });
            QVERIFY(!result.finished);
            QCOMPARE(waiter.mustEnd(), !refused);
            QVERIFY(TestDevice::waitUntil([&] { return children().isEmpty(); }));
            bool started = false;
            waiter.end(Waiter::End::RepositoryChanged);
            waiter.runBeside([&] {
                result = runFed(waiter, "/bin/sh", {}, {2s, 2s, 1000},
                                [&](const Feed &) { return started = true; });
            });
            QVERIFY(!result.finished && !started);
        }
    }

    void modulesLists()
    {
        struct Case
        {
            QByteArray text;
            qsizetype modules, refused;
            QString fault;
        };
        QByteArray many;
        for (int number = 0; number < mostModules; ++number) {
            many += QByteArray::number(number) + "\n";
        }
        const QList<Case> cases = {
            {"a\r\n b\na\n.c\n\nd\n", 2, 1, ""},
            {many + "1", mostModules, 0, ""},
            {many + "a", 0, 0, "it has more than 1000 names"},
            {QByteArray("a\n").repeated(524288), 1, 0, ""},
            {QByteArray("a\n").repeated(524288) + "a", 0, 0, "it has more than 1048576 bytes"}};
        for (const auto &[text, modules, refused, fault] : cases) {
            const ModulesList list = readModulesList(file("list", text));
            QCOMPARE(list.modules.size(), modules);
            QCOMPARE(list.refused.size(), refused);
            QCOMPARE(list.fault, fault);
        }
    }

    void answersWithoutEnd_data()
    {
        // what becomes of a fetch, and of any other request
        columns<Answer, QString, QString>("answer", "fetch", "other");
        const QByteArray good = "HTTP/1.1 200 OK\r\n";
        const QByteArray much = QByteArray(100000, 'x');
        const QString longer = "The server's answer has more than 1048576 bytes";
        const QString entry = "Entry 'e' is refused: it has more than 5000000 bytes";
        const QString slow = "The transfer is slower than 1000 bytes per second";
        const QString heads = "Too large response headers: ";
        const QString memory = "Out of memory";
        const QString silent = "Nothing has moved for 0.4 s";
        row("body", Answer{good + "\r\n", much, 0}, entry, longer);
        row("body of a failure", Answer{QByteArray("HTTP/1.1 404 None\r\n\r\n"), much, 0}, longer, longer);
        row("announced body", Answer{good + "Content-Length: 8000000000\r\n\r\n", QByteArray("x"), 50}, entry,
            slow);
        row("slow body", Answer{good + "Content-Length: 9000\r\n\r\n", QByteArray("x"), 50}, slow, slow);
        row("heads", Answer{good, QByteArray("X-Field: value\r\n"), 0}, heads, heads);
        row("long head", Answer{good + "X-Field: ", much, 0}, memory, memory);
        row("status", Answer{QByteArray("HTTP/1.1 200 "), much, 0}, memory, memory);
        row("slow head", Answer{good, QByteArray("x"), 50}, silent, silent);
    }
    void answersWithoutEnd()
    {
        QFETCH(Answer, answer);
        QFETCH(QString, fetch);
        QFETCH(QString, other);
        given = answer;
        DistantRepository repository(QString("http://127.0.0.1:%1/s").arg(server.serverPort()));
        repository.setInactivityLimit(400ms);
        repository.setRateWindow(400ms);
        file("back", "old");
        const qint64 before = memory();
        QElapsedTimer timer;
        timer.start();
        for (const Method method : {Method::Check, Method::Put, Method::Get, Method::Remove}) {
            repository.submit({method, "e", local->filePath("back"), {}, 5000000}, noted("e"));
            QVERIFY(finished(repository));
            const QString expected = method == Method::Get ? fetch : other;
            QVERIFY2(reason.startsWith(expected) || reason.startsWith("The server does not answer any more"),
                     qPrintable(reason));
        }
        QVERIFY(!outcomes.join(' ').contains("stored"));
        QCOMPARE(content("back"), "old");
        QVERIFY(timer.elapsed() < 6000 && memory() - before < 30);
    }
};

QTEST_GUILESS_MAIN(tst_bounds)
#include "tst_bounds.moc"
