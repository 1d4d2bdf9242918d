#include "staging/RememberedDigests.h"

#include "platform/core/Waiter.h"
#include "platform/Descriptor.h"
#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"

#include <QCryptographicHash>
#include <QFile>
#include <QMutexLocker>
#include <QSysInfo>

#include <algorithm>
#include <array>
#include <ctime>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace {

constexpr quint8 readEvery = 10; ///< saves
constexpr quint8 mostIdle = 50;  ///< saves
constexpr qsizetype mostDigests = 100000;

qint64 clockTime(clockid_t clock)
{
    timespec time = {};
    clock_gettime(clock, &time);
    return nanosecondsOf(time);
}

QByteArray hash(const QByteArray &text)
{
    return QCryptographicHash::hash(text, QCryptographicHash::Md5);
}

/// Those on which a store through a mapping to a page that has been brought to the disk was seen to change
/// the time stamps. In memory alone there is no such moment.
bool tellsOfStores(const struct statfs &system)
{
    constexpr std::array<quint32, 3> known = {EXT4_SUPER_MAGIC, XFS_SUPER_MAGIC, BTRFS_SUPER_MAGIC};
    return std::ranges::any_of(known,
                               [&](quint32 magic) { return static_cast<quint32>(system.f_type) == magic; });
}

/// What no other device has, or no other file system of this one.
QByteArray originOf(const struct statfs &system, const struct stat &root)
{
    QByteArray numbers(reinterpret_cast<const char *>(&system.f_fsid), sizeof system.f_fsid);
    numbers += QByteArray::number(static_cast<qulonglong>(root.st_dev)) + ' ' +
               QByteArray::number(static_cast<qulonglong>(root.st_ino));
    return hash(QSysInfo::machineUniqueId() + numbers);
}

/// So that not all are read by the same save.
quint8 firstSpared(const QString &key)
{
    return static_cast<quint8>(static_cast<uchar>(hash(key.toUtf8()).at(0)) % readEvery);
}

} // namespace

StampRules::StampRules()
    : builtAt(SAVERESTORE_BUILT * qint64{1'000'000'000}), now([] { return clockTime(CLOCK_REALTIME); })
{
}

void RememberedDigests::begin(Waiter &waiter, const QString &repository, Purpose purpose)
{
    saves = purpose == Purpose::Save;
    began = rules.now();
    const Descriptor root(
        open(QFile::encodeName(DevicePaths::dataRoot()).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    struct statfs system = {};
    bool synced = false;
    waiter.runBeside([&] {
        synced = root.isOpen() && fstatfs(root.number(), &system) == 0 && tellsOfStores(system) &&
                 syncfs(root.number()) == 0;
    });
    if (!synced) {
        return;
    }
    const struct stat status = root.status();
    device = status.st_dev;
    const QByteArray origin = originOf(system, status);
    file = readDigestFile(DevicePaths::rememberedDigests()).value_or(DigestFile{});
    if (file.origin != origin) {
        file = {.origin = origin, .repository = {}, .digests = {}};
    }
    if (file.repository != hash(repository.toUtf8())) {
        // What one repository says of a database is nothing to another one.
        file.repository = hash(repository.toUtf8());
        file.digests.removeIf([](const auto &digest) { return !digest.value().isOwn(); });
    }
}

bool RememberedDigests::isBelieved(const ContentState &state) const
{
    return device != 0 && !state.text.isEmpty() && state.device == device &&
           state.youngest < began - rules.settled.count() && state.oldestChange > rules.builtAt;
}

QString RememberedDigests::find(const QString &key, const ContentState &state)
{
    const QMutexLocker lock(&mutex);
    const auto digest = file.digests.find(key);
    if (digest == file.digests.end() || digest->state != state.text || !isBelieved(state)) {
        return {};
    }
    digest->idle = 0;
    if (saves && digest->spared + 1 >= readEvery) {
        return {};
    }
    if (saves) {
        ++digest->spared;
    }
    return QString::fromLatin1(digest->saved.toHex());
}

QString RememberedDigests::enter(const QString &key, const ContentState &state, const QString &digest,
                                 const std::function<ContentState()> &again)
{
    const QMutexLocker lock(&mutex);
    RememberedDigest entered = {.state = state.text,
                                .content = QByteArray::fromHex(digest.toLatin1()),
                                .saved = QByteArray::fromHex(digest.toLatin1()),
                                .spared = firstSpared(key)};
    const auto before = file.digests.constFind(key);
    if (before != file.digests.cend()) {
        const bool unchanged = before->state == state.text;
        if (before->content == entered.content || (before->content.isEmpty() && unchanged)) {
            entered.saved = before->saved;
        } else if (unchanged && !digest.isEmpty() && again() == state) {
            logWarning("'%1' has changed and its time stamps have not: it is saved as it is now", key);
        }
        entered.spared = 0;
    }
    if (digest.isEmpty() || !isBelieved(state) ||
        (before == file.digests.cend() && file.digests.size() >= mostDigests)) {
        file.digests.remove(key);
        return digest;
    }
    file.digests.insert(key, entered);
    return QString::fromLatin1(entered.saved.toHex());
}

bool RememberedDigests::enterRestored(const QString &key, const Descriptor &database, const QString &saved)
{
    const bool synced = device != 0 && fsync(database.number()) == 0;
    const struct stat status = database.status();
    const QByteArray digest = QByteArray::fromHex(saved.toLatin1());
    const bool tells = synced && status.st_dev == device && status.st_ctim.tv_nsec != 0;
    if (!tells || digest.toHex() != saved.toLatin1()) {
        return true;
    }
    if (nanosecondsOf(status.st_ctim) >= clockTime(CLOCK_REALTIME_COARSE)) {
        return false;
    }
    const QMutexLocker lock(&mutex);
    file.digests.insert(key, {.state = contentState(status).text, .content = {}, .saved = digest});
    return true;
}

void RememberedDigests::store()
{
    const QMutexLocker lock(&mutex);
    if (device == 0) {
        return;
    }
    if (saves) {
        file.digests.removeIf([](const auto &digest) { return ++digest.value().idle > mostIdle; });
    }
    if (!writeDigestFile(DevicePaths::rememberedDigests(), file)) {
        logDebug("Digests could not be remembered in '%1'", DevicePaths::rememberedDigests());
    }
}
