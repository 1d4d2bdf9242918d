#include "restore/Replacement.h"

#include "catalogue/ItemNames.h"
#include "platform/core/Waiter.h"
#include "platform/logger/VYXLogger.h"
#include "restore/TreeAccess.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr mode_t executable = S_IXUSR | S_IXGRP | S_IXOTH;

std::optional<struct stat> statusOf(const QString &path)
{
    struct stat status = {};
    const bool exists = lstat(QFile::encodeName(path).constData(), &status) == 0;
    return exists ? std::optional(status) : std::nullopt;
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

Replacement::Replacement(QString path) : livePath(std::move(path)) {}

Replacement::~Replacement()
{
    TreeAccess::removeAll(path());
    while (!madeParents.isEmpty()) {
        QDir().rmdir(madeParents.takeLast());
    }
}

QString Replacement::path() const
{
    return QFileInfo(livePath).path() + "/" + ItemNames::ownPrefix() + "incoming";
}

bool Replacement::prepare()
{
    if (!makeParents()) {
        return false;
    }
    TreeAccess::removeAll(path());
    return !statusOf(path());
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

bool Replacement::replace(Waiter &waiter)
{
    const QByteArray made = QFile::encodeName(path());
    const auto status = statusOf(path());
    if (const auto taken = ownership(S_IFREG); taken && status && S_ISREG(status->st_mode)) {
        if (lchown(made.constData(), taken->user, taken->group) != 0 ||
            chmod(made.constData(), taken->mode) != 0) {
            logWarning("Owner or mode of '%1' could not be kept", livePath);
        }
    }
    bool replaced = false;
    waiter.runBeside([&] {
        replaced = syncFileSystem(path()) && exchange();
        syncFileSystem(QFileInfo(livePath).path());
        TreeAccess::removeAll(path());
    });
    if (replaced) {
        madeParents.clear();
    }
    return replaced;
}

void Replacement::discard(Waiter &waiter)
{
    waiter.runBeside([this] { TreeAccess::removeAll(path()); });
}
