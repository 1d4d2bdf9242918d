#include "saverestorectl/DeviceData.h"

#include "catalogue/ItemNames.h"
#include "platform/DevicePaths.h"

#include <QFile>
#include <QFileInfo>

#include <climits>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr qsizetype mostEntries = 1000000;

struct stat statusOf(const Descriptor &directory, const QByteArray &name)
{
    struct stat status = {};
    if (fstatat(directory.number(), name.constData(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
        status.st_mode = 0;
    }
    return status;
}

/// Goes through a directory as it is archived.
class ArchiveWalk
{
public:
    ArchiveWalk(const Beneath &data, QString path, DataSize &size)
        : data(data), top(std::move(path)), size(size)
    {
    }

    void run()
    {
        QByteArrayList pending = {QByteArray()};
        while (!pending.isEmpty() && !size.isPartial) {
            visit(pending.takeLast(), pending);
        }
    }

private:
    void visit(const QByteArray &below, QByteArrayList &pending)
    {
        const Beneath::Opened opened = data.openDirectory(QFile::encodeName(top) + "/" + below);
        const auto names = namesIn(opened.descriptor, entriesLeft + 1);
        if (!names || (entriesLeft -= names->size()) < 0) {
            size.isPartial = true;
            return;
        }
        for (const QByteArray &name : *names) {
            if (!name.startsWith(QFile::encodeName(ItemNames::ownPrefix()))) {
                add(opened.descriptor, below, name, pending);
            }
        }
    }

    void add(const Descriptor &directory, const QByteArray &below, const QByteArray &name,
             QByteArrayList &pending)
    {
        const struct stat status = statusOf(directory, name);
        if (S_ISDIR(status.st_mode)) {
            pending << below + name + "/";
        } else if (S_ISREG(status.st_mode)) {
            size.bytes += static_cast<quint64>(status.st_size);
            ++size.files;
        } else if (S_ISLNK(status.st_mode)) {
            addLink(directory, below, name);
        } else if (status.st_mode != 0) {
            size.leaveOut(below + name, "no file, directory or link");
        }
    }

    void addLink(const Descriptor &directory, const QByteArray &below, const QByteArray &name)
    {
        QByteArray target(PATH_MAX, 0);
        target.truncate(
            readlinkat(directory.number(), name.constData(), target.data(), size_t(target.size())));
        const QString parent = QFile::decodeName("/" + below).chopped(1);
        if (ItemNames::leadsOut(target, "/top" + parent, "/top")) {
            size.leaveOut(below + name, "a link that leads out");
        }
    }

    const Beneath &data;
    const QString top;
    DataSize &size;
    qsizetype entriesLeft = mostEntries;
};

void addRegular(DataSize &size, const Descriptor &file)
{
    size.bytes += static_cast<quint64>(file.status().st_size);
    ++size.files;
}

} // namespace

void DataSize::leaveOut(const QByteArray &name, const char *why)
{
    constexpr qsizetype mostNamed = 10;
    if (++leftOutCount <= mostNamed) {
        leftOut << QString("%1 (%2)").arg(QFile::decodeName(name), why);
    }
}

DeviceData::DeviceData(const QString &module) : root(DevicePaths::moduleData(module)), data(root) {}

DataSize DeviceData::file(const QString &path) const
{
    const Beneath::Opened opened = data.openRegular(QFile::encodeName(path));
    DataSize size = {.state = opened.state};
    if (opened.descriptor.isOpen()) {
        addRegular(size, opened.descriptor);
    }
    return size;
}

DataSize DeviceData::directory(const QString &path) const
{
    const Beneath::Opened opened = data.openDirectory(QFile::encodeName(path));
    const auto names = namesIn(opened.descriptor, mostEntries);
    DataSize size = {.state = opened.state};
    size.isPartial = opened.descriptor.isOpen() && !names;
    for (const QByteArray &name : names.value_or(QByteArrayList())) {
        if (name.startsWith('.')) {
            size.leaveOut(name, "hidden");
            continue;
        }
        const Beneath::Opened file = data.openRegular(QFile::encodeName(path) + "/" + name);
        if (file.state == Beneath::State::WrongKind) {
            size.leaveOut(name,
                          S_ISDIR(statusOf(opened.descriptor, name).st_mode) ? "a directory" : "no file");
        } else if (file.state == Beneath::State::LeadsOut) {
            size.leaveOut(name, "a link that leads out");
        } else if (!ItemNames::fitsLine(name)) {
            size.leaveOut(name, "a TAB, a line break or bytes that are no UTF-8 in its name");
        } else if (file.descriptor.isOpen()) {
            addRegular(size, file.descriptor);
        } else {
            size.isPartial = true;
        }
    }
    return size;
}

DataSize DeviceData::archive(const QString &path) const
{
    DataSize size = {.state = data.openDirectory(QFile::encodeName(path)).state};
    if (QFileInfo(root + "/" + path).isSymLink()) {
        size.state = Beneath::State::WrongKind;
    }
    if (size.state == Beneath::State::Open) {
        ArchiveWalk(data, path, size).run();
    }
    return size;
}

DataSize DeviceData::database(const QString &name) const
{
    DataSize size = file(name + ".data");
    for (const char *suffix : {".data-wal", ".data-journal"}) {
        const Beneath::Opened beside = data.openRegular(QFile::encodeName(name + suffix));
        if (size.files > 0 && beside.descriptor.isOpen()) {
            size.bytes += static_cast<quint64>(beside.descriptor.status().st_size);
        }
    }
    return size;
}

bool DeviceData::isDatabase(const QString &path) const
{
    static const QByteArray magic("SQLite format 3", 16);
    const Beneath::Opened opened = data.openRegular(QFile::encodeName(path));
    QByteArray begin(magic.size(), 0);
    const ssize_t count = pread(opened.descriptor.number(), begin.data(), size_t(begin.size()), 0);
    return count == 0 || (count == begin.size() && begin == magic);
}
