#include "staging/LiveAttributes.h"

#include "catalogue/SavedItem.h"
#include "platform/Beneath.h"
#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"

#include <QFile>
#include <QHash>

#include <array>
#include <grp.h>
#include <pwd.h>

namespace {

constexpr qint64 nanosecondsOfSecond = 1'000'000'000;

/// Fits the entry of any user or group; one that is larger shows as a number.
using Buffer = std::array<char, 16384>;

QString userName(uid_t user)
{
    Buffer buffer;
    passwd entry = {};
    passwd *found = nullptr;
    getpwuid_r(user, &entry, buffer.data(), buffer.size(), &found);
    return found != nullptr ? QString::fromLocal8Bit(found->pw_name) : QString::number(user);
}

QString groupName(gid_t number)
{
    Buffer buffer;
    group entry = {};
    group *found = nullptr;
    getgrgid_r(number, &entry, buffer.data(), buffer.size(), &found);
    return found != nullptr ? QString::fromLocal8Bit(found->gr_name) : QString::number(number);
}

/// Looks each number up once.
QString known(QHash<quint32, QString> &names, quint32 number, QString (*name)(quint32))
{
    const auto found = names.constFind(number);
    return found != names.cend() ? *found : *names.insert(number, name(number));
}

} // namespace

AttributesByKey liveAttributes(const QString &module, const ChecksumLines &lines)
{
    const QString root = DevicePaths::moduleData(module);
    const Beneath data(root);
    QHash<quint32, QString> users;
    QHash<quint32, QString> groups;
    AttributesByKey attributes;
    for (const ChecksumLine &line : lines) {
        const auto item = SavedItem::parse(module, line);
        if (!item || item->getKind() == DirectoryItem) {
            continue;
        }
        const QByteArray path = QFile::encodeName(item->livePath().mid(root.size() + 1));
        const Beneath::Opened file = data.openRegular(path);
        if (file.state == Beneath::State::Unreadable) {
            logWarning(
                "Owner, permissions and time of '%1' of module '%2' cannot be read: those that were saved "
                "before stay",
                line.key(), module);
        }
        if (file.descriptor.isOpen()) {
            const struct stat status = file.descriptor.status();
            attributes[line.key()] = {status.st_mode & ACCESSPERMS, known(users, status.st_uid, userName),
                                      known(groups, status.st_gid, groupName),
                                      status.st_mtim.tv_sec * nanosecondsOfSecond + status.st_mtim.tv_nsec};
        }
    }
    return attributes;
}
