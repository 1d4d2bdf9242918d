#include "bench/Load.h"

#include "tests/support/TestDevice.h"

#include <QFileInfo>

#include <array>

namespace {

constexpr int filesInDirectory = 19;
constexpr qsizetype smallFile = 54000;
constexpr qsizetype largeFile = 650000;
constexpr int rows = 10000;

/// Text that compresses to about a third, another one for every seed.
QByteArray text(quint64 seed, qsizetype size)
{
    static constexpr std::array words = {"station", "frequency", "title",  "artist",  "route",  "waypoint",
                                         "contact", "number",    "volume", "balance", "source", "favourite"};
    QByteArray made;
    made.reserve(size + 64);
    while (made.size() < size) {
        seed = seed * 6364136223846793005U + 1442695040888963407U;
        made += words[(seed >> 33) % words.size()];
        made += '=';
        made += QByteArray::number(seed >> 40, 16);
        made += (seed >> 30) % 8 == 0 ? '\n' : ' ';
    }
    made.truncate(size);
    return made;
}

bool isDatabase(const QString &path)
{
    return path.endsWith(".data");
}

} // namespace

void Load::make(TestDevice &target, Groups groups)
{
    for (int number = 0; number < modules; ++number) {
        const QString module = QString("Module%1").arg(number);
        const bool two = number % 2 == 0;
        target.addModule(module,
                         QString("<databases><database name='first'>%2</database>%1</databases><files>"
                                 "<file>settings</file><file>plain</file><file zip='true'>zipped</file>"
                                 "</files>")
                             .arg(two ? "<database name='second'/>" : "",
                                  groups == Groups::One ? "<dependency>Module0</dependency>" : ""));
        addDatabase(module, "first");
        if (two) {
            addDatabase(module, "second");
        }
        add(module, "settings", largeFile);
        for (int file = 0; file < filesInDirectory; ++file) {
            add(module, QString("plain/%1 %2.conf").arg(number).arg(file), smallFile);
            add(module, QString("zipped/sub%1/%2").arg(file % 3).arg(file), smallFile);
        }
    }
}

void Load::add(const QString &module, const QString &item, qsizetype size)
{
    device.writeData(module, item, text(files.size() + 1, size));
    files << device.dataPath(module, item);
}

void Load::addDatabase(const QString &module, const QString &name)
{
    device.sql(module, name,
               QString("CREATE TABLE t(id INTEGER PRIMARY KEY, name TEXT, v TEXT); CREATE INDEX i ON t(name);"
                       "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < %1)"
                       "INSERT INTO t SELECT i, 'name ' || (i * 7919 % 10007),"
                       "printf('%.40c %x %x', 'v', i * %2, i * 40503) FROM n")
                   .arg(rows)
                   .arg(files.size() * 2654435761));
    files << device.dataPath(module, name + ".data");
}

void Load::change(int percent, int round) const
{
    const int step = 100 / percent;
    for (qsizetype index = round % step; index < files.size(); index += step) {
        const QString &path = files.at(index);
        if (isDatabase(path)) {
            TestDevice::sqlOnFile(path, QString("UPDATE t SET v = 'round %1' WHERE id = %1").arg(round + 1));
        } else {
            writeFile(path, text(quint64(round + 1) * 1000003 + index, QFileInfo(path).size()));
        }
    }
}

void Load::removeAll() const
{
    TestDevice::shell("rm -rf '" + device.path("data/VYXApplication") + "'/*/*");
}

QByteArray Load::digests() const
{
    return TestDevice::shell(
        "cd '" + device.path("data/VYXApplication") +
        "' && { find . -type f ! -name '*.data' ! -path './VYXSaveRestore/*' -exec md5sum {} + | sort;"
        "for f in */*.data; do echo $(sqlite3 $f .dump | md5sum) $f; done; }");
}

qint64 Load::size() const
{
    qint64 sum = 0;
    for (const QString &path : files) {
        sum += QFileInfo(path).size();
    }
    return sum;
}

QList<QString> Load::databases() const
{
    QList<QString> found = files;
    found.removeIf([](const QString &path) { return !isDatabase(path); });
    return found;
}
