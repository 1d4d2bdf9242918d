#include "bench/Floors.h"

#include "bench/Load.h"
#include "tests/support/TestDevice.h"

#include <QElapsedTimer>
#include <QStandardPaths>

#include <algorithm>
#include <array>

namespace {

constexpr int runs = 3;

double secondsOf(const QString &line)
{
    QElapsedTimer clock;
    clock.start();
    TestDevice::shell(line);
    return double(clock.nsecsElapsed()) / 1e9;
}

double fastest(const QString &line)
{
    double best = secondsOf(line);
    for (int run = 1; run < runs; ++run) {
        best = std::min(best, secondsOf(line));
    }
    return best;
}

struct Program
{
    const char *name;
    const char *prepare;
    const char *save;
    const char *restore;
};

// In the device's root: the data are in data/VYXApplication, what belongs to a program in other/.
constexpr std::array programs = {
    Program{"restic", "export RESTIC_PASSWORD=x RESTIC_REPOSITORY=$PWD/other/r; restic init -q",
            "export RESTIC_PASSWORD=x RESTIC_REPOSITORY=$PWD/other/r; restic backup -q --no-cache "
            "data/VYXApplication",
            "export RESTIC_PASSWORD=x RESTIC_REPOSITORY=$PWD/other/r; restic restore -q --no-cache latest "
            "--target "
            "other/t"},
    Program{"borg", "export BORG_BASE_DIR=$PWD/other; borg init -e none other/b",
            "export BORG_BASE_DIR=$PWD/other; borg create other/b::$(date +%s%N) data/VYXApplication",
            "export BORG_BASE_DIR=$PWD/other; mkdir -p other/t; cd other/t; borg extract ../b::$(borg list "
            "--last 1 "
            "--short ../b)"},
    Program{"rsync -c", "true", "rsync -ac data/VYXApplication other/d",
            "rsync -ac other/d/VYXApplication other/t"}};

} // namespace

QList<Floor> measureFloors(const TestDevice &device, const Load &load)
{
    const QString begin = "cd '" + device.path("data/VYXApplication") + "' && ";
    const QList<std::pair<QString, QString>> lines = {
        {"one process reads and hashes all", "find . -type f -print0 | xargs -0 cat | md5sum"},
        {"cp of the databases", "mkdir ../floor; cp */*.data --parents -t ../floor; rm -r ../floor"},
        {"cp of all, and sync", "cp -r . ../floor; sync -f ../floor; rm -r ../floor"},
        {"sqlite3 .dump of all databases", "for f in */*.data; do sqlite3 $f .dump; done >/dev/null"},
        {"tar of the zipped directories", "tar -cf - */zipped | cat >/dev/null"},
        {"gzip -6 of archives and dumps",
         "{ tar -cf - */zipped; for f in */*.data; do sqlite3 $f .dump; done; } | gzip -6 >/dev/null"}};
    QList<Floor> floors;
    for (const auto &[what, line] : lines) {
        floors << Floor{what, fastest(begin + line)};
    }
    floors.last().what += QString(" (%1 MB in %2 files)").arg(load.size() / 1000000).arg(load.fileCount());
    return floors;
}

double secondsOfCopy(const QString &file)
{
    return fastest(QString("cp '%1' '%1.copy'; rm '%1.copy'").arg(file));
}

QList<Floor> measureOthers(const TestDevice &device, const Load &load)
{
    QList<Floor> floors;
    const QString begin = "cd '" + device.path("") + "' && ";
    int round = 1000;
    for (const Program &program : programs) {
        const QString name = program.name;
        if (QStandardPaths::findExecutable(name.section(' ', 0, 0)).isEmpty()) {
            continue;
        }
        TestDevice::shell(begin + "mkdir other; " + program.prepare);
        floors << Floor{name + ": first save", secondsOf(begin + program.save)};
        floors << Floor{name + ": save, nothing changed", secondsOf(begin + program.save)};
        load.change(1, ++round);
        floors << Floor{name + ": save, 1 % changed", secondsOf(begin + program.save)};
        floors << Floor{name + ": whole restore", secondsOf(begin + program.restore)};
        TestDevice::shell(begin + "rm -rf other");
    }
    return floors;
}
