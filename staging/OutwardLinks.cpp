#include "staging/OutwardLinks.h"

#include <QDir>
#include <QFile>

#include <climits>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr qsizetype mostEntries = 1000000;
constexpr qsizetype mostLinks = 1000;

/// By its text alone, as a restore sees it: what it leads to may be a link again.
bool leadsOut(const Descriptor &parent, const QByteArray &name, const QString &parentPath,
              const QString &directory)
{
    QByteArray target(PATH_MAX, 0);
    target.truncate(
        std::max<ssize_t>(0, readlinkat(parent.number(), name.constData(), target.data(), target.size())));
    const QString reached = QDir::cleanPath(QDir(parentPath).filePath(QFile::decodeName(target)));
    return reached != directory && !reached.startsWith(directory + "/");
}

/// True for what tar takes from one line of a list as it is.
bool fitsList(const QByteArray &name)
{
    return !name.contains('\n') && name.trimmed().endsWith(name.back());
}

} // namespace

OutwardLinks outwardLinks(const Descriptor &directory, const QString &path)
{
    OutwardLinks found;
    QByteArrayList pending = {""};
    qsizetype left = mostEntries;
    const Beneath inside("/proc/self/fd/" + QString::number(directory.number()) + "/.");
    while (!pending.isEmpty() && found.complete) {
        const QByteArray parent = pending.takeLast();
        const Descriptor opened = inside.openDirectory(parent).descriptor;
        for (const QByteArray &name : namesIn(opened).value_or(QByteArrayList())) {
            struct stat status = {};
            fstatat(opened.number(), name.constData(), &status, AT_SYMLINK_NOFOLLOW);
            if (S_ISDIR(status.st_mode)) {
                pending << parent + name + "/";
            } else if (S_ISLNK(status.st_mode) &&
                       leadsOut(opened, name, path + "/" + QFile::decodeName(parent), path)) {
                found.links << parent + name;
                found.complete = found.links.size() <= mostLinks && fitsList(name);
            }
            found.complete = found.complete && --left > 0;
            if (!found.complete) {
                break;
            }
        }
    }
    return found;
}
