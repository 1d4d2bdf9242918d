#include "restore/Replacement.h"

#include "catalogue/ItemNames.h"
#include "platform/core/Waiter.h"
#include "platform/logger/VYXLogger.h"
#include "restore/RestoreNote.h"
#include "restore/TreeAccess.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr qint64 nanosecondsOfSecond = 1'000'000'000;
constexpr mode_t executable = S_IXUSR | S_IXGRP | S_IXOTH;

std::optional<struct stat> statusOf(const QString &path)
{
    struct stat status = {};
    const bool exists = lstat(QFile::encodeName(path).constData(), &status) == 0;
    return exists ? std::optional(status) : std::nullopt;
}

/// The number of that name, if the device knows it.
std::optional<uid_t> userNumber(const QString &name)
{
    const passwd *const found = getpwnam(name.toLocal8Bit().constData());
    return found != nullptr ? std::optional(found->pw_uid) : std::nullopt;
}

std::optional<gid_t> groupNumber(const QString &name)
{
    const group *const found = getgrnam(name.toLocal8Bit().constData());
    return found != nullptr ? std::optional(found->gr_gid) : std::nullopt;
}

void removeSideFiles(const QString &path)
{
    for (const char *suffix : Replacement::sideSuffixes) {
        TreeAccess::removeAll(path + suffix);
    }
}

bool hasSideFiles(const QString &path)
{
    return std::ranges::any_of(Replacement::sideSuffixes,
                               [&](const char *suffix) { return statusOf(path + suffix).has_value(); });
}

QString readyPath(const QString &path)
{
    const QFileInfo info(path);
    return info.path() + "/" + Replacement::readyPrefix() + info.fileName();
}

bool move(const QString &from, const QString &to)
{
    return std::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) == 0;
}

/// Have the file system that holds the path written to the disk.
bool syncFileSystem(const QString &path)
{
    const int file =
        open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (file < 0) {
        return false;
    }
    const bool synced = syncfs(file) == 0;
    close(file);
    return synced;
}

} // namespace

Replacement::Replacement(QString path) : livePath(std::move(path))
{
    static int made = 0;
    number = ++made;
}

Replacement::~Replacement()
{
    TreeAccess::removeAll(path());
    removeSideFiles(path());
    if (statusOf(path()) || hasSideFiles(path())) {
        logWarning("'%1' could not be removed: the next start of the service removes it", path());
        RestoreNote::keep();
    }
    while (!madeParents.isEmpty()) {
        QDir().rmdir(madeParents.takeLast());
    }
}

QString Replacement::path() const
{
    return QString("%1/%2incoming.%3").arg(QFileInfo(livePath).path(), ItemNames::ownPrefix()).arg(number);
}

bool Replacement::prepare()
{
    if (!makeParents()) {
        return false;
    }
    TreeAccess::removeAll(path());
    removeSideFiles(path());
    return !statusOf(path()) && !hasSideFiles(path());
}

bool Replacement::makeParents()
{
    QString nearest = QFileInfo(livePath).path();
    QStringList missing;
    while (!QFileInfo(nearest).isDir() && nearest != "/") {
        missing.prepend(nearest);
        nearest = QFileInfo(nearest).path();
    }
    struct stat above = {};
    if (stat(QFile::encodeName(nearest).constData(), &above) != 0) {
        return false;
    }
    for (const QString &directory : std::as_const(missing)) {
        const QByteArray name = QFile::encodeName(directory);
        if (mkdir(name.constData(), S_IRWXU) != 0) {
            return false;
        }
        madeParents << directory;
        if (lchown(name.constData(), above.st_uid, above.st_gid) != 0 ||
            chmod(name.constData(), above.st_mode & ALLPERMS) != 0) {
            logWarning("Owner or mode of '%1' could not be kept", directory);
        }
    }
    return true;
}

std::optional<Replacement::Ownership> Replacement::ownership(mode_t kind) const
{
    if (const auto old = statusOf(livePath); old && (old->st_mode & S_IFMT) == kind) {
        return Ownership{old->st_uid, old->st_gid, old->st_mode & ALLPERMS};
    }
    struct stat above = {};
    if (stat(QFile::encodeName(QFileInfo(livePath).path()).constData(), &above) != 0) {
        return std::nullopt;
    }
    const mode_t mode =
        kind == S_IFDIR ? above.st_mode & ALLPERMS : above.st_mode & ACCESSPERMS & ~executable;
    return Ownership{above.st_uid, above.st_gid, mode};
}

/// A rename replaces a file or a link; two directories change places.
bool Replacement::exchange() const
{
    const QByteArray made = QFile::encodeName(path());
    const QByteArray live = QFile::encodeName(livePath);
    if (std::rename(made.constData(), live.constData()) == 0) {
        return true;
    }
    return renameat2(AT_FDCWD, made.constData(), AT_FDCWD, live.constData(), RENAME_EXCHANGE) == 0;
}

Replacement::Ownership Replacement::withAttributes(Ownership taken) const
{
    if (!attributes) {
        return taken;
    }
    struct stat above = {};
    stat(QFile::encodeName(QFileInfo(livePath).path()).constData(), &above);
    const auto user = userNumber(attributes->owner);
    const auto group = groupNumber(attributes->group);
    if (user && (*user != 0 || above.st_uid == 0)) {
        taken.user = *user;
    }
    if (group && (*group != 0 || above.st_gid == 0)) {
        taken.group = *group;
    }
    taken.mode = attributes->mode & ACCESSPERMS;
    return taken;
}

void Replacement::takeOwnership() const
{
    const QByteArray made = QFile::encodeName(path());
    const auto status = statusOf(path());
    const auto usual = ownership(S_IFREG);
    if (!usual || !status || !S_ISREG(status->st_mode)) {
        return;
    }
    const Ownership taken = withAttributes(*usual);
    if (lchown(made.constData(), taken.user, taken.group) != 0 || chmod(made.constData(), taken.mode) != 0) {
        logWarning("Owner or mode of '%1' could not be kept", livePath);
    }
    if (attributes) {
        const timespec modified = {static_cast<time_t>(attributes->modified / nanosecondsOfSecond),
                                   static_cast<long>(attributes->modified % nanosecondsOfSecond)};
        const std::array times = {timespec{0, UTIME_OMIT}, modified};
        utimensat(AT_FDCWD, made.constData(), times.data(), AT_SYMLINK_NOFOLLOW);
    }
}

bool Replacement::replace(Waiter &waiter)
{
    return replaceAll(waiter, {this}).first();
}

/// Each file system that one of the paths lies on is written to the disk once.
bool Replacement::syncAll(const QStringList &paths)
{
    QSet<dev_t> synced;
    return std::ranges::all_of(paths, [&](const QString &path) {
        const auto status = statusOf(path);
        if (!status || synced.contains(status->st_dev)) {
            return status.has_value();
        }
        synced << status->st_dev;
        return syncFileSystem(path);
    });
}

QList<bool> Replacement::replaceAll(Waiter &waiter, const QList<Replacement *> &all)
{
    QStringList made;
    QStringList places;
    for (const Replacement *one : all) {
        one->takeOwnership();
        made << one->path();
        places << QFileInfo(one->livePath).path();
    }
    QList<bool> replaced(all.size(), false);
    waiter.runBeside([&] {
        if (syncAll(made)) {
            std::ranges::transform(all, replaced.begin(), &Replacement::exchange);
        }
        syncAll(places);
        std::ranges::for_each(made, TreeAccess::removeAll);
    });
    for (qsizetype number = 0; number < all.size(); ++number) {
        if (replaced.at(number)) {
            all.at(number)->madeParents.clear();
        }
    }
    return replaced;
}

void Replacement::discard(Waiter &waiter)
{
    waiter.runBeside([this] { TreeAccess::removeAll(path()); });
}

bool Replacement::replaceDatabase(Waiter &waiter)
{
    const auto old = statusOf(livePath);
    if (old && S_ISDIR(old->st_mode)) {
        return false;
    }
    takeOwnership();
    bool replaced = false;
    waiter.runBeside([&] {
        replaced = syncFileSystem(path()) && move(path(), readyPath(livePath)) && complete(livePath);
    });
    if (statusOf(readyPath(livePath))) {
        RestoreNote::keep();
    }
    if (replaced) {
        madeParents.clear();
    }
    return replaced;
}

QString Replacement::readyPrefix()
{
    return ItemNames::ownPrefix() + "ready.";
}

bool Replacement::complete(const QString &livePath)
{
    const QString directory = QFileInfo(livePath).path();
    if (!syncFileSystem(directory)) {
        return false;
    }
    removeSideFiles(livePath);
    return !hasSideFiles(livePath) && syncFileSystem(directory) && move(readyPath(livePath), livePath) &&
           syncFileSystem(directory);
}
