#include "restore/LiveData.h"

#include "catalogue/ItemNames.h"
#include "platform/core/Waiter.h"
#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"
#include "restore/Replacement.h"
#include "restore/RestoreNote.h"
#include "restore/TreeAccess.h"

#include <QDeadlineTimer>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QStringList>

#include <cstdio>
#include <sys/stat.h>

// A directory of this prefix beside live data holds what a restore has set aside: the live data under their
// own name and, for a database, its side files. Side files are brought back last: as long as the database
// itself is not there, the live one is still, or again, the old one.

using namespace std::chrono_literals;

namespace {

constexpr auto mostSearched = 60s;

const QString asidePrefix = ItemNames::ownPrefix() + "aside.";
const QString absentMarker = ".absent";     // there were no live data
const QString databaseMarker = ".database"; // the live data have side files

bool present(const QString &path)
{
    struct stat status = {};
    return lstat(QFile::encodeName(path).constData(), &status) == 0;
}

bool move(const QString &from, const QString &to)
{
    return std::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) == 0;
}

/// Bring back what the directory holds; safe to be cut off and done again.
bool bringBack(const QString &path)
{
    const QString directory = QFileInfo(path).path() + "/" + asidePrefix + QFileInfo(path).fileName();
    const QString name = QFileInfo(path).fileName();
    const bool database = present(directory + "/" + databaseMarker);
    const bool held = present(directory + "/" + name);
    if (held || present(directory + "/" + absentMarker)) {
        for (const char *suffix : Replacement::sideSuffixes) {
            if (database) {
                TreeAccess::removeAll(path + suffix);
            }
        }
        TreeAccess::removeAll(path);
    }
    if (held && !move(directory + "/" + name, path)) {
        logError("What was set aside in '%1' could not be brought back", directory);
        return false;
    }
    for (const char *suffix : Replacement::sideSuffixes) {
        if (present(directory + "/" + name + suffix)) {
            move(directory + "/" + name + suffix, path + suffix);
        }
    }
    TreeAccess::removeAll(directory);
    return true;
}

/// What a restore has left under a name of the service's. False when it is still there.
bool bringIntoOrder(const QString &left)
{
    const QFileInfo info(left);
    const bool ready = info.fileName().startsWith(Replacement::readyPrefix());
    if (!ready && !info.fileName().startsWith(asidePrefix)) {
        TreeAccess::removeAll(left);
        return !present(left);
    }
    const QString name = info.fileName().mid((ready ? Replacement::readyPrefix() : asidePrefix).size());
    if (name.isEmpty() || name == "." || name == ".." || ItemNames::isOwn(name)) {
        logError("'%1' stands for no data and is left alone", left);
        return true;
    }
    const QString path = info.path() + "/" + name;
    if (ready) {
        logWarning("A restore was cut off: '%1' is put in its place", path);
        return Replacement::complete(path);
    }
    logWarning("A restore was cut off: '%1' is brought back", path);
    return bringBack(path);
}

QString nearestDirectory(const QString &path)
{
    QString directory = QFileInfo(path).path();
    while (!QFileInfo(directory).isDir() && directory != "/") {
        directory = QFileInfo(directory).path();
    }
    return directory;
}

} // namespace

namespace LiveData {

bool belongsToModule(const QString &path, const QString &module)
{
    const QString data = QFileInfo(DevicePaths::dataRoot()).canonicalFilePath();
    const QString lexical = DevicePaths::moduleData(module) + "/";
    if (data.isEmpty() || !path.startsWith(lexical) || path.split('/').contains("..")) {
        return false;
    }
    const QString directory = QFileInfo(nearestDirectory(path)).canonicalFilePath();
    const QString own = data + "/" + module;
    return directory == own || directory.startsWith(own + "/") || directory == data;
}

bool recoverAll(const QString &root, const std::function<bool()> &mustEnd)
{
    QStringList found;
    QDirIterator entries(root, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                         QDirIterator::Subdirectories);
    while (entries.hasNext() && !mustEnd()) {
        const QString path = entries.next();
        const bool inside = ItemNames::isOwn(path.mid(root.size()).section('/', 0, -2));
        if (ItemNames::isOwn(entries.fileName()) && !inside) {
            found << path;
        }
    }
    bool whole = !mustEnd();
    for (const QString &left : std::as_const(found)) {
        whole = bringIntoOrder(left) && whole;
    }
    return whole;
}

void recoverNoted()
{
    recoverAll(DevicePaths::trialDirectory());
    bool whole = true;
    const auto modules = RestoreNote::read();
    for (const QString &module : modules.value_or(QStringList())) {
        const QString data = DevicePaths::moduleData(module);
        whole = (QFileInfo(data).isSymLink() || recoverAll(data)) && whole;
    }
    if (modules && whole) {
        RestoreNote::clear();
    }
}

void recoverWithoutNote(Waiter &waiter)
{
    if (RestoreNote::read()) {
        return;
    }
    const QDeadlineTimer deadline(mostSearched);
    waiter.runBeside([&] {
        if (recoverAll(DevicePaths::dataRoot(), [&] { return waiter.mustEnd() || deadline.hasExpired(); })) {
            RestoreNote::begin();
        }
    });
}

} // namespace LiveData
