#include "restore/DatabaseRestore.h"

#include "commands/DatabaseConnection.h"
#include "commands/FedCommand.h"
#include "commands/GzipWriter.h"
#include "platform/core/Waiter.h"
#include "platform/DiskSpace.h"
#include "platform/logger/VYXLogger.h"
#include "restore/DumpReader.h"

#include <QFile>
#include <QFileInfo>
#include <QtEndian>
#include <QThread>

#include <algorithm>
#include <csignal>
#include <functional>
#include <memory>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

// The shell's status when it has come to the end of what it was fed. Its other ones do not tell: it ends with
// 0 after a dump that is cut off or that ends the shell. What makes it end so fails while a transaction is
// open.
constexpr int endReached = 77;
const QByteArray endOfInput = "\nBEGIN;COMMIT;\n.exit 77\n";

/// What is made beside a live database need not be on the disk before it is put in its place.
constexpr auto inNoHaste = "PRAGMA synchronous=OFF;";

constexpr int pagesPerStep = 1000;

/// The first value that the statement gives.
QByteArray valueOf(sqlite3 *database, const char *sql)
{
    sqlite3_stmt *statement = nullptr;
    QByteArray value;
    if (sqlite3_prepare_v2(database, sql, -1, &statement, nullptr) == SQLITE_OK &&
        sqlite3_step(statement) == SQLITE_ROW) {
        value = reinterpret_cast<const char *>(sqlite3_column_text(statement, 0));
    }
    sqlite3_finalize(statement);
    return value;
}

/// What the header of a database's file says, in bytes; 0, which SQLite ignores, when there is none. Nothing
/// is locked for it.
int pageSizeOf(const QString &path)
{
    constexpr qsizetype position = 16;
    constexpr int largest = 65536; // does not fit: written as 1
    QFile file(path);
    const QByteArray head = QFileInfo(path).isSymLink() || !file.open(QIODevice::ReadOnly)
                                ? QByteArray()
                                : file.read(position + 2);
    if (!head.startsWith("SQLite format 3") || head.size() < position + 2) {
        return 0;
    }
    const int size = qFromBigEndian<quint16>(head.constData() + position);
    return size == 1 ? largest : size;
}

/// Put the content of one database into another as one transaction of that. A status of SQLite's, without
/// what it says beside.
int copyContent(const Waiter &waiter, const QString &source, const QString &target,
                std::chrono::milliseconds busy, int making = 0)
{
    const DatabaseConnection from = connectToDatabase(source, SQLITE_OPEN_READWRITE, busy, &waiter);
    const DatabaseConnection to = connectToDatabase(target, SQLITE_OPEN_READWRITE | making, busy, &waiter);
    if (!from || !to) {
        return SQLITE_CANTOPEN;
    }
    if (making != 0) {
        sqlite3_exec(to.get(), inNoHaste, nullptr, nullptr, nullptr);
    }
    sqlite3_backup *backup = sqlite3_backup_init(to.get(), "main", from.get(), "main");
    if (backup == nullptr) {
        return sqlite3_errcode(to.get()) & 0xff;
    }
    int result = SQLITE_OK;
    while (result == SQLITE_OK) {
        result = waiter.mustEnd() ? SQLITE_INTERRUPT : sqlite3_backup_step(backup, pagesPerStep);
    }
    const int finished = sqlite3_backup_finish(backup);
    return (result == SQLITE_DONE ? finished : result) & 0xff;
}

/// What comes out of a dump is written with the rights of the directory's owner, where root can give them.
std::optional<ChildIdentity> ownerOfPlace(const QString &path)
{
    struct stat status = {};
    const bool known = stat(QFile::encodeName(QFileInfo(path).path()).constData(), &status) == 0;
    constexpr mode_t needed = S_IWUSR | S_IXUSR;
    const bool mayWrite = known && (status.st_mode & needed) == needed;
    return mayWrite && geteuid() == 0 && status.st_uid != 0
               ? std::optional(ChildIdentity{status.st_uid, status.st_gid})
               : std::nullopt;
}

bool isRegular(const QString &path)
{
    const QFileInfo info(path);
    return info.isFile() && !info.isSymLink();
}

} // namespace

DatabaseRestore::DatabaseRestore(QString dump, QString livePath, const LoadLimits &limits)
    : dump(std::move(dump)), livePath(livePath), limits(limits), replacement(std::move(livePath))
{
}

QString DatabaseRestore::prepare(Waiter &waiter)
{
    return prepareAll(waiter, {this}).first();
}

QStringList DatabaseRestore::prepareAll(Waiter &waiter, const QList<DatabaseRestore *> &all)
{
    QStringList faults;
    QList<std::function<void()>> works;
    for (DatabaseRestore *one : all) {
        faults << one->begin(waiter);
    }
    const qsizetype atOnce = std::min<qsizetype>(QThread::idealThreadCount(), all.size());
    for (qsizetype number = 0; number < all.size(); ++number) {
        if (faults.at(number).isEmpty()) {
            works << [&waiter, atOnce, one = all.at(number), &fault = faults[number]] {
                fault = one->partial ? one->checkRows(waiter) : one->build(waiter, atOnce);
            };
        }
    }
    waiter.runAllBeside(works);
    const auto discardIfFailed = [&](qsizetype number) {
        if (!faults.at(number).isEmpty()) {
            all.at(number)->replacement.discard(waiter);
        }
    };
    for (qsizetype number = 0; number < all.size(); ++number) {
        discardIfFailed(number);
    }
    for (qsizetype number = 0; number < all.size(); ++number) {
        DatabaseRestore *const one = all.at(number);
        if (one->tooLarge && one->replacement.prepare()) {
            waiter.runBeside([&] { faults[number] = one->build(waiter, 1); });
            discardIfFailed(number);
        }
    }
    return faults;
}

QString DatabaseRestore::apply(Waiter &waiter)
{
    QString fault = partial ? takePlace() : QString();
    if (partial && fault.isEmpty()) {
        waiter.runBeside([&] { fault = build(waiter, 1); });
    }
    if (fault.isEmpty()) {
        fault = putInPlace(waiter);
    }
    replacement.discard(waiter);
    return fault;
}

QString DatabaseRestore::look(const Waiter &waiter)
{
    const QByteArray label = gzipLabel(dump);
    if (!promised.isEmpty() && !label.isEmpty() && label != promised.toLatin1()) {
        return QString("Dump '%1' is not what was saved: it is of a database with digest %2, promised was %3")
            .arg(dump, QString::fromLatin1(label), promised);
    }
    DumpReader reader(dump, waiter, limits.wallClock);
    while (reader.kind() == DumpText::Kind::Unknown && !reader.next().isEmpty()) {
    }
    partial = reader.kind() == DumpText::Kind::Rows;
    return partial || reader.kind() == DumpText::Kind::Database ? QString() : faultOfDump();
}

/// Look at the dump's first line, and make room for what will be made of it.
QString DatabaseRestore::begin(const Waiter &waiter)
{
    const QString fault = look(waiter);
    return fault.isEmpty() && !partial ? takePlace() : fault;
}

QString DatabaseRestore::checkRows(const Waiter &waiter) const
{
    DumpReader reader(dump, waiter, limits.wallClock);
    while (!reader.next().isEmpty()) {
    }
    return reader.isWhole() ? QString() : faultOfDump();
}

QString DatabaseRestore::faultOfDump() const
{
    return QString("Dump '%1' is missing or broken").arg(dump);
}

QString DatabaseRestore::takePlace()
{
    if (partial && !isRegular(livePath)) {
        return QString("Database '%1' does not exist: there is nothing to put the saved rows into")
            .arg(livePath);
    }
    return replacement.prepare() ? QString()
                                 : QString("There is no place for a database beside '%1'").arg(livePath);
}

/// Whatever a dump does before it fails, it does beside the live database: selected rows, too, are put into a
/// copy. For a thread beside.
QString DatabaseRestore::build(const Waiter &waiter, qsizetype atOnce)
{
    QString fault = partial ? copyLive(waiter) : QString();
    if (fault.isEmpty()) {
        fault = load(waiter, atOnce);
    }
    return fault.isEmpty() ? faultOfLoaded(waiter) : fault;
}

QString DatabaseRestore::copyLive(const Waiter &waiter) const
{
    const int result = copyContent(waiter, livePath, replacement.path(), limits.busy, SQLITE_OPEN_CREATE);
    return result == SQLITE_OK ? QString() : faultOfWriting(result);
}

QString DatabaseRestore::faultOfWriting(int result) const
{
    return QString("Database '%1' could not be written: %2").arg(livePath, sqlite3_errstr(result));
}

/// The shell's own commands in a dump must not run: they could do anything on the device. A tenth of what is
/// free is left to the others; loads that run at once share the rest. A new database takes the live one's
/// page size, which SQLite cannot change in one that has a write-ahead log. What a dump that turns out to be
/// broken has made so far is not used.
QString DatabaseRestore::load(const Waiter &waiter, qsizetype atOnce)
{
    constexpr int shares = 10;
    const QString database = replacement.path();
    const qint64 available = DiskSpace::of(QFileInfo(database).path()).available;
    const qint64 fileSize =
        QFileInfo(database).size() + (available - available / shares) / (atOnce * limits.shareOfRoom);
    const QString busy = QString(".timeout %1").arg(limits.busy.count());
    const QString settings = QString("PRAGMA page_size=%1;%2").arg(pageSizeOf(livePath)).arg(inNoHaste);
    const QStringList arguments = {"-init", "/dev/null", "-batch", "-safe",  "-bail",
                                   "-cmd",  busy,        "-cmd",   settings, database};
    logDebug("Loading '%1' into '%2'", dump, database);
    const auto owner = ownerOfPlace(database);
    if (owner && lchown(QFile::encodeName(database).constData(), owner->user, owner->group) != 0) {
        logDebug("'%1' has no owner of its own", database); // a new file, or a file system without owners
    }
    DumpReader reader(dump, waiter, limits.wallClock + std::chrono::seconds(1)); // the loader's is up first
    const auto feed = [&](const Feed &send) {
        bool taken = true; // the rest is read all the same: which fault is told does not depend on the loader
        for (QByteArrayView block = reader.next(); !block.isEmpty(); block = reader.next()) {
            taken = taken && send(block);
        }
        if (taken && reader.isWhole()) {
            send(endOfInput);
        }
        return !reader.isBroken();
    };
    const CommandResult result =
        runFed(waiter, "sqlite3", arguments,
               {limits.wallClock, limits.processorTime, fileSize, limits.memory}, feed, owner);
    noRoom = !result.finished && result.exitCode == SIGXFSZ;
    tooLarge = atOnce > 1 && noRoom;
    if (reader.isBroken()) {
        return faultOfDump();
    }
    if (reader.isWhole() && result.finished && result.exitCode == endReached) {
        return {};
    }
    return QString("Dump '%1' could not be loaded: %2").arg(dump, result.errorText);
}

/// The journal has to be the one kind that leaves the live database's alone.
QString DatabaseRestore::faultOfLoaded(const Waiter &waiter) const
{
    const DatabaseConnection database =
        connectToDatabase(replacement.path(), SQLITE_OPEN_READWRITE, {}, &waiter);
    const bool sound = database && valueOf(database.get(), "PRAGMA journal_mode=DELETE") == "delete" &&
                       valueOf(database.get(), "PRAGMA quick_check(1)") == "ok";
    return sound ? QString() : QString("Database '%1' made of dump '%2' is not sound").arg(livePath, dump);
}

QString DatabaseRestore::putInPlace(Waiter &waiter)
{
    int result = SQLITE_CANTOPEN;
    if (isRegular(livePath)) {
        waiter.runBeside([&] { result = copyContent(waiter, replacement.path(), livePath, limits.busy); });
    }
    const bool inUse = result == SQLITE_BUSY || result == SQLITE_LOCKED || result == SQLITE_READONLY;
    const bool broken = result == SQLITE_CANTOPEN || result == SQLITE_NOTADB || result == SQLITE_CORRUPT;
    if (result == SQLITE_OK) {
        return {};
    }
    if ((!inUse && !broken) || !replacement.replaceDatabase(waiter)) {
        return faultOfWriting(result);
    }
    if (inUse) {
        logWarning("Database '%1' was in use: it was replaced, and its user has to open it again", livePath);
    }
    return {};
}
