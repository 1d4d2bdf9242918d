#include "staging/DirectoryArchive.h"

#include "catalogue/ItemNames.h"
#include "platform/Beneath.h"
#include "platform/core/Waiter.h"
#include "staging/TarWriter.h"

#include <QCryptographicHash>
#include <QDeadlineTimer>
#include <QFile>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

using namespace std::chrono_literals;

namespace {

constexpr qsizetype mostEntries = 1000000;
constexpr qsizetype mostLeftOut = 1000;
constexpr qsizetype portionSize = qsizetype{256} * 1024;

/// What becomes of the members that are met. Each says false when the walk need not go on.
class Visitor
{
public:
    Visitor() = default;
    Visitor(const Visitor &) = delete;
    Visitor &operator=(const Visitor &) = delete;
    virtual ~Visitor() = default;
    virtual bool directory(const QByteArray &member, const struct stat &status) = 0;
    virtual bool file(const QByteArray &member, const Descriptor &found) = 0;
    virtual bool link(const QByteArray &member, const struct stat &status, const QByteArray &target) = 0;
};

class Archiver : public Visitor
{
public:
    explicit Archiver(TarWriter &tar) : tar(tar) {}

    bool directory(const QByteArray &member, const struct stat &status) override
    {
        return tar.add(member, status);
    }
    bool file(const QByteArray &member, const Descriptor &found) override;
    bool link(const QByteArray &member, const struct stat &status, const QByteArray &target) override
    {
        return tar.addLink(member, status, target);
    }

private:
    TarWriter &tar;
    QByteArray portion = QByteArray(portionSize, Qt::Uninitialized);
};

bool Archiver::file(const QByteArray &member, const Descriptor &found)
{
    const Descriptor file = openedForReading(found);
    const struct stat status = file.status();
    if (!file.isOpen() || !tar.add(member, status)) {
        return false;
    }
    off_t left = status.st_size;
    ssize_t count = 1;
    while (left > 0 && count > 0) {
        const auto wanted = static_cast<size_t>(std::min<off_t>(left, portion.size()));
        count = TEMP_FAILURE_RETRY(read(file.number(), portion.data(), wanted));
        if (count < 0 || !tar.write(QByteArrayView(portion.constData(), count))) {
            return false;
        }
        left -= count;
    }
    return true;
}

class Observer : public Visitor
{
public:
    explicit Observer(const Waiter &waiter) : waiter(waiter) {}

    bool directory(const QByteArray &member, const struct stat &status) override
    {
        return add(member, status);
    }
    bool file(const QByteArray &member, const Descriptor &found) override
    {
        return add(member, found.status());
    }
    bool link(const QByteArray &member, const struct stat &status, const QByteArray &) override
    {
        return add(member, status);
    }

    ContentState state() const;

private:
    bool add(const QByteArray &member, const struct stat &status);

    const Waiter &waiter;
    QCryptographicHash hash{QCryptographicHash::Md5};
    ContentState all;
    bool one = true; ///< whether all have a state, on one file system
};

bool Observer::add(const QByteArray &member, const struct stat &status)
{
    const ContentState state = contentState(status);
    if (all.device == 0) {
        all = state;
    }
    one = one && !state.text.isEmpty() && state.device == all.device;
    all.youngest = std::max(all.youngest, state.youngest);
    all.oldestChange = std::min(all.oldestChange, state.oldestChange);
    hash.addData(member);
    hash.addData(QByteArray(1, 0));
    hash.addData(state.text);
    return !waiter.mustEnd();
}

ContentState Observer::state() const
{
    ContentState state = all;
    state.text = one && !all.text.isEmpty() ? hash.result() : QByteArray();
    return state;
}

/// Goes through a directory and visits what is in it; one directory at a time is open.
class Walk
{
public:
    Walk(const Descriptor &directory, const QString &path, Visitor &visitor, DirectoryArchive &result)
        : top("/proc/self/fd/" + QString::number(directory.number()) + "/."), path(path),
          member(QFile::encodeName(path).mid(1)), visitor(visitor), result(result)
    {
    }

    /// False when the archive cannot be whole.
    bool run()
    {
        bool whole = true;
        while (whole && !pending.isEmpty()) {
            const auto [parent, name] = pending.takeLast();
            whole = addDirectory(parent + name);
        }
        return whole;
    }

private:
    bool addDirectory(const QByteArray &below);
    bool addEntry(const Descriptor &parent, const QByteArray &prefix, const QByteArray &name);
    bool addLink(const Descriptor &found, const QByteArray &below);
    bool leaveOut(QByteArrayList &list, const QByteArray &below);

    QByteArray memberOf(const QByteArray &below) const
    {
        return below.isEmpty() ? member : member + "/" + below;
    }

    Beneath top;
    QString path;
    QByteArray member;
    Visitor &visitor;
    DirectoryArchive &result;
    /// Directories: the path of the parent, which all in it share, and the name.
    QList<std::pair<QByteArray, QByteArray>> pending = {{QByteArray(), QByteArray()}};
    QByteArray ownPrefix = QFile::encodeName(ItemNames::ownPrefix());
    qsizetype entriesLeft = mostEntries;
};

bool Walk::addDirectory(const QByteArray &below)
{
    const Beneath::Opened opened = top.openDirectory(below);
    if (!opened.descriptor.isOpen()) {
        return opened.state != Beneath::State::Unreadable;
    }
    const auto names = namesIn(opened.descriptor, entriesLeft + 1);
    if (!names || !visitor.directory(memberOf(below), opened.descriptor.status())) {
        return false;
    }
    entriesLeft -= names->size();
    result.bounded = entriesLeft >= 0;
    const qsizetype before = pending.size();
    const QByteArray prefix = below.isEmpty() ? QByteArray() : below + "/";
    for (const QByteArray &name : *names) {
        if (!result.bounded || !addEntry(opened.descriptor, prefix, name)) {
            return false;
        }
    }
    std::reverse(pending.begin() + before, pending.end()); // the last one comes next
    return true;
}

bool Walk::addEntry(const Descriptor &parent, const QByteArray &prefix, const QByteArray &name)
{
    if (name.startsWith(ownPrefix)) {
        return true; // what a restore that was cut off left behind is no data, and would not be restored
    }
    const QByteArray below = prefix + name;
    if (1 + memberOf(below).size() >= PATH_MAX) {
        result.bounded = false;
        return false;
    }
    const Descriptor found(openat(parent.number(), name.constData(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!found.isOpen()) {
        return errno == ENOENT;
    }
    switch (found.status().st_mode & S_IFMT) {
    case S_IFDIR:
        pending.emplaceBack(prefix, name);
        return true;
    case S_IFREG:
        return visitor.file(memberOf(below), found);
    case S_IFLNK:
        return addLink(found, below);
    default:
        return leaveOut(result.others, below);
    }
}

bool Walk::addLink(const Descriptor &found, const QByteArray &below)
{
    QByteArray target(PATH_MAX, 0);
    const ssize_t size = readlinkat(found.number(), "", target.data(), target.size());
    if (size <= 0) {
        return false;
    }
    target.truncate(size);
    const QString parent = QFile::decodeName("/" + memberOf(below)).section('/', 0, -2);
    return ItemNames::leadsOut(target, parent, path) ? leaveOut(result.outward, below)
                                                     : visitor.link(memberOf(below), found.status(), target);
}

bool Walk::leaveOut(QByteArrayList &list, const QByteArray &below)
{
    list << below;
    result.bounded = result.outward.size() + result.others.size() <= mostLeftOut;
    return result.bounded;
}

} // namespace

DirectoryArchive archiveDirectory(const Waiter &waiter, const Descriptor &directory, const QString &path,
                                  const QString &archive)
{
    DirectoryArchive result;
    const QDeadlineTimer deadline(30min);
    TarWriter tar(archive, [&] { return !waiter.mustEnd() && !deadline.hasExpired(); });
    Archiver archiver(tar);
    if (Walk(directory, path, archiver, result).run()) {
        result.digest = tar.finish();
    }
    return result;
}

DirectoryArchive lookIntoDirectory(const Waiter &waiter, const Descriptor &directory, const QString &path)
{
    DirectoryArchive result;
    Observer observer(waiter);
    if (Walk(directory, path, observer, result).run()) {
        result.state = observer.state();
    }
    return result;
}
