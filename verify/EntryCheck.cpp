#include "verify/EntryCheck.h"

#include "commands/Digest.h"
#include "platform/core/Waiter.h"
#include "platform/Descriptor.h"
#include "platform/DevicePaths.h"
#include "platform/DiskSpace.h"
#include "restore/ArchiveReader.h"
#include "restore/DatabaseRestore.h"

#include <QDir>
#include <QFile>

#include <fcntl.h>
#include <functional>
#include <memory>
#include <vector>

namespace {

/// Databases are tried in no more than this part of what is free.
constexpr int shareOfRoom = 4;

QString otherDigest(const QString &found, const QString &promised)
{
    return QString("It is not what was saved: its digest is %1, promised was %2").arg(found, promised);
}

QString faultOfFile(const EntryCheck &check, const Waiter &waiter)
{
    const Descriptor file(open(QFile::encodeName(check.path).constData(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    const QString digest = fileDigest(waiter, file);
    return digest == check.item.digest ? QString() : otherDigest(digest, check.item.digest);
}

QString faultOfArchive(const EntryCheck &check, const Waiter &waiter)
{
    const Descriptor file(open(QFile::encodeName(check.path).constData(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    const auto limit = static_cast<quint64>(DiskSpace::of(DevicePaths::dataRoot()).total);
    try {
        ArchiveReader reader(file.number(), limit, waiter);
        while (reader.next()) {
        }
        const QString digest = reader.digest();
        return digest == check.item.digest ? QString() : otherDigest(digest, check.item.digest);
    } catch (const ArchiveFault &fault) {
        return fault.kind == ArchiveFault::Kind::TooLarge
                   ? "The archive is larger than the device's file system"
                   : "The archive is broken: it cannot be read to its end";
    }
}

void checkDatabases(const QList<EntryCheck *> &checks, Waiter &waiter)
{
    if (checks.isEmpty()) {
        return;
    }
    QDir().mkpath(DevicePaths::trialDirectory());
    std::vector<std::unique_ptr<DatabaseRestore>> made;
    QList<DatabaseRestore *> tried;
    LoadLimits limits;
    limits.shareOfRoom = shareOfRoom;
    for (const EntryCheck *check : checks) {
        const QString place =
            QString("%1/%2.data").arg(DevicePaths::trialDirectory(), QString::number(made.size()));
        made.push_back(std::make_unique<DatabaseRestore>(check->path, place, limits));
        made.back()->setPromised(check->item.digest);
        tried << made.back().get();
    }
    const QStringList faults = DatabaseRestore::prepareAll(waiter, tried);
    for (qsizetype number = 0; number < checks.size(); ++number) {
        const bool noRoom = tried.at(number)->lacksRoom();
        checks.at(number)->isChecked = !noRoom;
        checks.at(number)->fault = noRoom ? QString() : faults.at(number);
    }
    made.clear();
    QDir().rmdir(DevicePaths::trialDirectory());
}

} // namespace

void checkEntries(QList<EntryCheck> &entries, Waiter &waiter)
{
    QList<EntryCheck *> databases;
    QList<std::function<void()>> works;
    for (EntryCheck &check : entries) {
        switch (check.item.item.getKind()) {
        case FileItem:
            works << [&] { check.fault = faultOfFile(check, waiter); };
            break;
        case DirectoryItem:
            works << [&] { check.fault = faultOfArchive(check, waiter); };
            break;
        case DatabaseItem:
            databases << &check;
            break;
        }
    }
    waiter.runAllBeside(works);
    checkDatabases(databases, waiter);
}
