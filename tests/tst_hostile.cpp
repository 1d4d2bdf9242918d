#include "tests/support/OperationTest.h"

namespace {

/// What a hostile repository holds, made in a good one by these lines of shell.
const QString tools = R"sh(
line() { printf '%s\t%s\t%s\t1\thigh\n' "$1" "${3-$(md5sum <f.txt | cut -c-32)}" "$2" >>A.cksum; }
promise() { awk -F '\t' -v OFS='\t' -v k="$1" -v d="$(md5sum <"$2" | cut -c-32)" '$1 == k {$2 = d} 1' A.cksum >c
            mv c A.cksum; }
archive() { gzip -c t >A++zipped.tar.gz; promise A/zipped.tar t; rm -r t w; }
dump() { gzip >A++whole.dump.gz; }
full() { printf 'PRAGMA foreign_keys=OFF;\nBEGIN TRANSACTION;\n%s\nCOMMIT;\n' "$1" | dump; }
mkdir -p w/$D/zipped; printf saved >w/$D/zipped/x; F=${D%%/*}
)sh";

/// Keys that lead elsewhere or mean something to the service, with the kinds that they are given.
const QStringList keys = {"../B/f",
                          "/etc/x",
                          "a/../../B/f",
                          "$R/x",
                          ".",
                          "..",
                          "",
                          "a//b",
                          "./x",
                          "x/.",
                          "x/..",
                          "out",
                          "out/x",
                          ".saverestore-aside.../x",
                          "x/.saverestore-ready.f",
                          ".saverestore-incoming.1",
                          "B/whole.data",
                          "A/../x.data",
                          "A/sub/x.data",
                          "A/.data",
                          "A/out/x.data",
                          "A/../B.tar",
                          "A/../../etc.tar",
                          "A/.tar",
                          "A/out.tar",
                          "A/out/x.tar",
                          "A/.saverestore-aside..tar",
                          "A//etc.tar",
                          "A/..tar"};

void controlFiles()
{
    row("list: names that lead out", R"(printf '../../etc\n.\n..\na/b\n-rf\n' >>modules-list.sav)");
    row("list: 100,000 names", "seq 100000 >>modules-list.sav");
    for (const QString file :
         {"modules-list.sav", "A.version", "A.cksum", "A.attributes", ".saverestore-format"}) {
        row(qPrintable(file + ": noise"), "head -c 1000000 /dev/urandom >" + file);
        row(qPrintable(file + ": 70 MB"), "truncate -s 70M " + file);
        row(qPrintable(file + ": a pipe"), "rm " + file + "; mkfifo " + file);
        row(qPrintable(file + ": a link out"), "ln -sf $R/data/VYXApplication/B/f " + file);
    }
    row("a line of 60 MB", "head -c 60000000 /dev/zero | tr '\\0' x >>A.cksum; line x file");
    row("500,000 lines", R"(seq -f 'n%.0f	0	file	1	high' 500000 >>A.cksum)");
    row("a deep key", "line $(yes d/ | head -n 60000 | tr -d '\\n')x file");
    row("a chain of names",
        "for i in $(seq 200); do line $(yes A | head -n $((i % 50 + 1)) | paste -sd/)/$i file; done");
    row("contradicting lines", "line f.txt file 0; line f.txt directory; line A/zipped.tar file");
    row("set-id for root", R"(printf 'f.txt\t7777\troot\troot\t9999999999999999999\n' >A.attributes)");
    row("set-id by name", R"(printf 'f.txt\t0777\t../root\t-1\t-1\n' >A.attributes)");
}

void entries()
{
    row("empty file", ": >f.txt");
    row("another's content", "cp A.version f.txt");
    row("a pipe", "rm f.txt; mkfifo f.txt");
    row("a directory", "rm f.txt; mkdir f.txt");
    row("a link out", "ln -sf $R/data/VYXApplication/B/f f.txt; promise f.txt f.txt");
    row("the shell's commands",
        R"(printf 'PRAGMA foreign_keys=OFF;\n.shell touch '$R'/x\n.read x\nCOMMIT;\n' | dump)");
    row("attached", "full \"ATTACH '$R/x' AS x; CREATE TABLE x.t(v);\"");
    row("written files", "full \"VACUUM INTO '$R/x'; SELECT writefile('$R/x', 'x');\"");
    row("rows without end",
        R"(printf 'PRAGMA foreign_keys=OFF;\nBEGIN TRANSACTION;\nWITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i+1 FROM n) SELECT i FROM n LIMIT 3000000;\n' | dump)");
    row("1 GB of one line", "head -c 1000000000 /dev/zero | dump");
    row("1 GB of ends", "yes 'COMMIT;' | head -c 1000000000 | dump");
    row("noise as dump", "head -c 100000 /dev/urandom >A++whole.dump.gz");
    row("cut dump", "zcat A++whole.dump.gz | head -n -1 | dump");
    row("rolled back", "full 'ROLLBACK; -- due to errors'");
    row("left early", R"(printf 'PRAGMA foreign_keys=OFF;\nBEGIN TRANSACTION;\n.quit\nCOMMIT;\n' | dump)");
    row("link out", "ln -s $R w/$D/zipped/l; tar -cf t -C w $F; archive");
    row("through a link", "ln -s $R w/$D/zipped/l; tar -cf t -C w $F; rm w/$D/zipped/l; mkdir w/$D/zipped/l;"
                          "printf saved >w/$D/zipped/l/x; tar -rf t -C w $D/zipped/l/x; archive");
    row("absolute", "tar -cPf t /etc/hostname; archive");
    row("upwards", "tar -cPf t --transform 's,zipped/x,zipped/../../B/f,' -C w $D/zipped/x; archive");
    row("beside", "mv w/$D/zipped w/$D/aside; tar -cf t -C w $D/aside; archive");
    row("set-id", "chmod 6777 w/$D/zipped/x; tar -cf t -C w $F; archive");
    row("a device", "tar -cf t --transform \"s,^dev,$D/zipped,\" /dev/null; archive");
    row("8 TB", "truncate -s 8T w/$D/zipped/x; tar -S -cf t -C w $F; archive");
    row("noise as archive", "head -c 100000 /dev/urandom >t; archive");
    row("cut archive", "tar -cf t -C w $F; head -c 700 t >u; mv u t; archive");
}

} // namespace

/// Restores from repositories that lie. Whatever they hold, nothing outside of the module's data changes, its
/// items are as they were or as they were saved, and the service goes on.
class tst_hostile : public OperationTest
{
    Q_OBJECT

    QByteArray outside;
    QByteArrayList saved;
    QSet<QByteArray> allowed;

    QByteArray in(const QString &directory, const QString &line) const
    {
        return TestDevice::shell("cd '" + device->path(directory) +
                                 "' || exit; D=" + device->path("data/VYXApplication/A").mid(1) +
                                 " R=" + device->path("").chopped(1) + "; " + line);
    }
    /// All that there is beside the module's own data.
    QByteArray everythingElse() const
    {
        return in("", "find . \\( -path ./data/VYXApplication/A -o -path '*/VYXSaveRestore' -o -path ./media "
                      "-o -path ./tmp -o -path ./pristine "
                      "-o -name '*.log' -o -name settings.conf \\) -prune "
                      "-o -printf '%p %y %m %U %l ' \\( -type f -exec md5sum {} \\; -o -print \\) | sort");
    }
    /// The items of the module, one a line, with their content.
    QByteArrayList items() const
    {
        return in("data/VYXApplication/A",
                  "find . \\( -type d -o -type l \\) -printf '%p %y %l\\n' -o -name '*.data' -exec sh -c "
                  "'echo $1 $(sqlite3 -readonly $1 .dump | md5sum)' sh {} \\; -o -type f -exec md5sum {} + | "
                  "sort")
            .split('\n');
    }
    /// Whether the item is the file of the row's key, or a directory on the way to it: a plain file of the
    /// module may have every name that stays among its data.
    static bool isPromised(const QByteArray &item)
    {
        const QByteArray path = QByteArray(QTest::currentDataTag()).replace("key: ", "./");
        return item == md5("saved").toUtf8() + "  " + path || item.startsWith(path + " ") ||
               (item.endsWith(" d ") && path.startsWith(item.chopped(3) + "/"));
    }

private Q_SLOTS:
    void initTestCase()
    {
        startAfresh();
        device->addModule("A", "<databases><database name='whole'/></databases><files><file>f.txt</file>"
                               "<file zip='true'>zipped</file></files>");
        device->sql("A", "whole", "CREATE TABLE t(v); INSERT INTO t VALUES('saved')");
        write("A", {"f.txt", "zipped/x"}, "saved");
        write("B", {"f"}, "of another module");
        QVERIFY(QFile::link("../B", device->dataPath("A", "out")));
        QVERIFY(start(false) && save());
        in("", "mkdir pristine; cp -a media/repository pristine");
        saved = items();
        write("A", {"f.txt", "zipped/x"}, "damaged");
        device->sql("A", "whole", "UPDATE t SET v='damaged'");
        in("", "cp -a data/VYXApplication/A pristine");
        const QByteArrayList damaged = items();
        allowed = QSet<QByteArray>(saved.cbegin(), saved.cend()) +
                  QSet<QByteArray>(damaged.cbegin(), damaged.cend());
        // What a link leads to is left out, but not the directory of its name.
        allowed << "./zipped/l d " << md5("saved").toUtf8() + "  ./zipped/l/x";
        outside = everythingElse();
    }
    void init() {} // one device for all
    void cleanup() {}
    void cleanupTestCase() { QCOMPARE(TestDevice::retire(device), QString()); }

    void changesNothingElse_data()
    {
        columns<QString>("made");
        row("nothing", "rm -r w");
        for (const QString &key : keys) {
            row(qPrintable("key: " + key), "for k in file directory database; do line \"" + key +
                                               "\" $k; done; cp f.txt \"$(echo \"" + key +
                                               "\" | sed 's,/,++,g')\"");
        }
        controlFiles();
        entries();
    }
    void changesNothingElse()
    {
        QFETCH(QString, made);
        in("", "rm -rf media/repository data/VYXApplication/A; cp -a pristine/repository media; "
               "cp -a pristine/A data/VYXApplication");
        in("media/repository", tools + made);
        QElapsedTimer timer;
        timer.start();
        previewed = Previewed::ButForDamage;
        restore();
        QVERIFY2(timer.elapsed() < 3 * 30000, qPrintable(QString::number(timer.elapsed())));
        QCOMPARE(everythingElse(), outside);
        const QByteArrayList found = items();
        for (const QByteArray &item : found) {
            QVERIFY2(allowed.contains(item) || isPromised(item), item.constData());
        }
        QVERIFY(found == saved || made != "rm -r w");
        QVERIFY(in("data/VYXApplication/A", "find . -perm /6000 -o -name '.saverestore*'").isEmpty());
        QVERIFY(device->allRun({"A"}));
        QVERIFY(device->call("printSettings").type() == QDBusMessage::ReplyMessage);
    }

    void memoryIsBounded()
    {
        const QByteArray status = readFile(QString("/proc/%1/status").arg(device->service().processId()));
        const qint64 peak = QRegularExpression("VmHWM:\\s*(\\d+)").match(status).captured(1).toLongLong();
        qInfo("peak memory of the service: %lld kB", peak);
        QVERIFY(peak < 400000);
    }
};

QTEST_GUILESS_MAIN(tst_hostile)
#include "tst_hostile.moc"
