#include "restore/LiveData.h"

#include "catalogue/ItemNames.h"
#include "commands/Command.h"
#include "platform/core/Waiter.h"
#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"
#include "restore/TreeAccess.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

#include <array>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

// The directory beside the live data is made under one name, counts from the moment it has another, and is
// thrown away under a third, so that each change of meaning is one rename. In it lie the live data under
// their own name and, for a database, its side files. Side files are moved there first and back last: as long
// as the database itself is not there, the live one is still, or again, the old one.

namespace {

const QString asidePrefix = ItemNames::ownPrefix() + "aside.";
const QString newPrefix = ItemNames::ownPrefix() + "new.";
const QString oldPrefix = ItemNames::ownPrefix() + "old.";
const QString absentMarker = ".absent";     // there were no live data
const QString databaseMarker = ".database"; // the live data have side files

constexpr std::array sideSuffixes = {"-wal", "-shm", "-journal"};
constexpr mode_t executable = S_IXUSR | S_IXGRP | S_IXOTH;

bool present(const QString &path)
{
    struct stat status = {};
    return lstat(QFile::encodeName(path).constData(), &status) == 0;
}

bool move(const QString &from, const QString &to)
{
    return std::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) == 0;
}

bool mark(const QString &directory, const QString &marker)
{
    QFile file(directory + "/" + marker);
    return file.open(QIODevice::WriteOnly);
}

QString beside(const QString &path, const QString &prefix)
{
    const QFileInfo info(path);
    return info.path() + "/" + prefix + info.fileName();
}

void removeSideFiles(const QString &path)
{
    for (const char *suffix : sideSuffixes) {
        QFile::remove(path + suffix);
    }
}

void sync(const QString &path)
{
    const int file = open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (file >= 0) {
        fsync(file);
        close(file);
    }
}

void dropAside(const QString &path)
{
    const QString old = beside(path, oldPrefix);
    TreeAccess::removeAll(old);
    move(beside(path, asidePrefix), old);
    TreeAccess::removeAll(old);
}

/// Bring back what the directory holds; safe to be cut off and done again.
bool bringBack(const QString &path)
{
    const QString directory = beside(path, asidePrefix);
    const QString name = QFileInfo(path).fileName();
    const bool database = present(directory + "/" + databaseMarker);
    const bool held = present(directory + "/" + name);
    if (held || present(directory + "/" + absentMarker)) {
        if (database) {
            removeSideFiles(path);
        }
        TreeAccess::removeAll(path);
    }
    if (held && !move(directory + "/" + name, path)) {
        logError("What was set aside in '%1' could not be brought back", directory);
        return false;
    }
    for (const char *suffix : sideSuffixes) {
        if (present(directory + "/" + name + suffix)) {
            move(directory + "/" + name + suffix, path + suffix);
        }
    }
    TreeAccess::removeAll(directory);
    return true;
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

LiveData::LiveData(QString livePath, Kind kind) : path(std::move(livePath)), kind(kind) {}

LiveData::~LiveData()
{
    if (aside) {
        bringBack(path);
    }
    while (!madeParents.isEmpty()) {
        QDir().rmdir(madeParents.takeLast());
    }
}

bool LiveData::exists() const
{
    return present(path);
}

bool LiveData::belongsToModule(const QString &path, const QString &module)
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

void LiveData::rememberOwnership()
{
    struct stat status = {};
    const bool old = lstat(QFile::encodeName(path).constData(), &status) == 0 && S_ISREG(status.st_mode);
    if (!old && stat(QFile::encodeName(nearestDirectory(path)).constData(), &status) != 0) {
        return;
    }
    ownership = {status.st_uid, status.st_gid,
                 old ? status.st_mode & ALLPERMS : status.st_mode & ACCESSPERMS & ~executable};
}

void LiveData::applyOwnership() const
{
    const QByteArray name = QFile::encodeName(path);
    if (lchown(name.constData(), ownership.user, ownership.group) != 0 ||
        chmod(name.constData(), ownership.mode) != 0) {
        logWarning("Owner or mode of '%1' could not be kept", path);
    }
}

bool LiveData::makeParents()
{
    const QString nearest = nearestDirectory(path);
    struct stat status = {};
    if (stat(QFile::encodeName(nearest).constData(), &status) != 0) {
        return false;
    }
    const QString relative = QFileInfo(path).path().mid(nearest.size());
    QString directory = nearest;
    for (const QString &part : relative.split('/', Qt::SkipEmptyParts)) {
        directory += "/" + part;
        const QByteArray name = QFile::encodeName(directory);
        if (mkdir(name.constData(), S_IRWXU) != 0) {
            return false;
        }
        madeParents << directory;
        if (lchown(name.constData(), status.st_uid, status.st_gid) != 0 ||
            chmod(name.constData(), status.st_mode & ALLPERMS) != 0) {
            logWarning("Owner or mode of '%1' could not be kept", directory);
        }
    }
    return true;
}

bool LiveData::prepare(const QString &directory) const
{
    TreeAccess::removeAll(directory);
    return mkdir(QFile::encodeName(directory).constData(), S_IRWXU) == 0 &&
           (kind != Kind::Database || mark(directory, databaseMarker));
}

bool LiveData::moveAside()
{
    if (present(beside(path, asidePrefix)) && !bringBack(path)) {
        return false;
    }
    rememberOwnership();
    const QString made = beside(path, newPrefix);
    const QString directory = beside(path, asidePrefix);
    if (!makeParents() || !prepare(made) || (!exists() && !mark(made, absentMarker)) ||
        !move(made, directory)) {
        TreeAccess::removeAll(made);
        return false;
    }
    aside = true;
    const QString held = directory + "/" + QFileInfo(path).fileName();
    bool moved = true;
    if (kind == Kind::Database) {
        for (const char *suffix : sideSuffixes) {
            moved = moved && (!present(path + suffix) || move(path + suffix, held + suffix));
        }
    }
    moved = moved && (!exists() || move(path, held));
    if (!moved) {
        bringBack(path);
        aside = false;
    }
    return moved;
}

bool LiveData::copyAside(Waiter &waiter)
{
    if (!exists() || QFileInfo(path).isSymLink()) {
        return moveAside();
    }
    if (present(beside(path, asidePrefix)) && !bringBack(path)) {
        return false;
    }
    rememberOwnership();
    const QString made = beside(path, newPrefix);
    bool copied = prepare(made) && runCommand(waiter, "cp", {"-a", path, made}).succeeded();
    for (const char *suffix : sideSuffixes) {
        if (kind == Kind::Database && present(path + suffix)) {
            copied = copied && runCommand(waiter, "cp", {"-a", path + suffix, made}).succeeded();
        }
    }
    if (!copied || !move(made, beside(path, asidePrefix))) {
        TreeAccess::removeAll(made);
        return false;
    }
    aside = true;
    return true;
}

void LiveData::commit(Waiter &waiter)
{
    applyOwnership();
    // Writing a large file to the disk takes its time, and so does removing one.
    waiter.runBeside([this] {
        sync(path);
        sync(QFileInfo(path).path());
        dropAside(path);
    });
    madeParents.clear();
    aside = false;
}

void LiveData::recoverAll(const QString &root)
{
    QStringList found;
    QDirIterator entries(root, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                         QDirIterator::Subdirectories);
    while (entries.hasNext()) {
        const QString path = entries.next();
        const bool inside = ItemNames::isOwn(path.mid(root.size()).section('/', 0, -2));
        if (ItemNames::isOwn(entries.fileName()) && !inside) {
            found << path;
        }
    }
    for (const QString &directory : std::as_const(found)) {
        const QFileInfo info(directory);
        if (!info.fileName().startsWith(asidePrefix)) {
            TreeAccess::removeAll(directory);
            continue;
        }
        const QString name = info.fileName().mid(asidePrefix.size());
        if (name.isEmpty() || name == "." || name == ".." || ItemNames::isOwn(name)) {
            logError("'%1' stands for no data and is left alone", directory);
            continue;
        }
        const QString path = info.path() + "/" + name;
        logWarning("A restore was cut off: '%1' is brought back", path);
        bringBack(path);
    }
}
