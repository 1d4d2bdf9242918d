#include "restore/RestoreNote.h"

#include "catalogue/ItemNames.h"
#include "platform/Descriptor.h"
#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"

#include <QDir>
#include <QFile>

#include <atomic>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr qint64 largestNote = qint64{1024} * 1024;

std::atomic<bool> kept = false;
std::atomic<bool> searched = true; ///< false when there may be more to be put in order than what is noted

Descriptor openDirectory(const QString &path)
{
    constexpr int flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    return Descriptor(open(QFile::encodeName(path).constData(), flags));
}

bool store(const QByteArray &content)
{
    const QByteArray name = QFile::encodeName(DevicePaths::restoreNote());
    const QByteArray fresh = name + ".new";
    const QString place = DevicePaths::moduleData("VYXSaveRestore");
    mkdir(QFile::encodeName(place).constData(), S_IRWXU);
    const Descriptor directory = openDirectory(place);
    if (directory.status().st_uid != geteuid()) {
        return false;
    }
    constexpr int flags = O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC;
    const Descriptor file(open(fresh.constData(), flags, S_IRUSR | S_IWUSR));
    return directory.isOpen() && file.isOpen() && writeAll(file, content) && fsync(file.number()) == 0 &&
           std::rename(fresh.constData(), name.constData()) == 0 && fsync(directory.number()) == 0;
}

} // namespace

namespace RestoreNote {

void write(const QStringList &modules)
{
    const auto before = read();
    searched = before.has_value();
    QStringList all = modules + before.value_or(QStringList());
    all.removeDuplicates();
    QDir().mkpath(DevicePaths::dataRoot());
    if (!store(all.join('\n').toUtf8() + "\n")) {
        QFile::remove(DevicePaths::restoreNote());
        logWarning("Could not note in '%1' whose data are replaced", DevicePaths::restoreNote());
    }
}

void clear()
{
    const auto modules = read();
    if (kept || !modules || modules->isEmpty()) {
        return;
    }
    for (const QString &module : *modules) {
        const Descriptor data = openDirectory(DevicePaths::moduleData(module));
        if (data.isOpen() && syncfs(data.number()) != 0) {
            return;
        }
    }
    if (!searched || !store({})) {
        QFile::remove(DevicePaths::restoreNote());
    }
}

void begin()
{
    searched = store({});
}

std::optional<QStringList> read()
{
    const Descriptor file = openedRegular(DevicePaths::restoreNote());
    const struct stat status = file.status();
    QFile reader;
    if (!file.isOpen() || status.st_uid != geteuid() || status.st_size > largestNote ||
        !reader.open(file.number(), QIODevice::ReadOnly)) {
        return std::nullopt;
    }
    QStringList modules = QString::fromUtf8(reader.read(largestNote)).split('\n');
    modules.removeIf([](const QString &name) { return !ItemNames::isModuleName(name); });
    return modules;
}

void keep()
{
    kept = true;
}

} // namespace RestoreNote
