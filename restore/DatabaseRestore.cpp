#include "restore/DatabaseRestore.h"

#include "commands/Command.h"
#include "commands/ShellText.h"
#include "platform/core/VYXApplication.h"
#include "platform/core/Waiter.h"
#include "platform/logger/VYXLogger.h"

#include <QFile>
#include <QFileInfo>
#include <QStorageInfo>
#include <QtEndian>

#include <memory>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

/// What is in a dump that is whole, "database" or "rows". It must decompress, begin as a dump does, and its
/// transaction must have been closed. Lines are looked at as far as they can tell something: one without end
/// would have to be kept.
const QString kindLine =
    R"({ zcat %1 || printf '\nROLLBACK; -- due to errors\n'; } | cut -b -64 | awk ')"
    R"(NR == 1 {kind["PRAGMA foreign_keys=OFF;"] = "database"; kind["BEGIN TRANSACTION;"] = "rows"; is = kind[$0]} )"
    R"(/^COMMIT;$/ {closed = 1} /^ROLLBACK; -- due to errors$/ {failed = 1} END {if (closed && !failed) print is}')";

// The shell's status when it has come to the end of what it was fed. Its other ones do not tell: it ends with
// 0 after a dump that is cut off or that ends the shell. What makes it end so fails while a transaction is
// open.
constexpr int endReached = 77;
const QString endOfInput = R"(printf '\nBEGIN;COMMIT;\n.exit 77\n')";

constexpr int pagesPerStep = 1000;
constexpr int instructionsBetweenLooks = 100000;

struct Closing
{
    void operator()(sqlite3 *database) const { sqlite3_close(database); }
};
using Connection = std::unique_ptr<sqlite3, Closing>;

int mustStop(void *)
{
    return VYXApplication::isEnding() ? 1 : 0;
}

/// No connection when the database cannot be opened, or when it is a link by now: its directory belongs to
/// others. What its schema says is not trusted.
Connection connect(const QString &path, int flags, std::chrono::milliseconds busy = {})
{
    const QFileInfo info(path);
    const QString real = QFileInfo(info.path()).canonicalFilePath() + "/" + info.fileName();
    sqlite3 *handle = nullptr;
    const int result =
        sqlite3_open_v2(QFile::encodeName(real).constData(), &handle, flags | SQLITE_OPEN_NOFOLLOW, nullptr);
    Connection connection(handle);
    if (result != SQLITE_OK) {
        return nullptr;
    }
    sqlite3_busy_timeout(handle, static_cast<int>(busy.count()));
    sqlite3_db_config(handle, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    sqlite3_progress_handler(handle, instructionsBetweenLooks, mustStop, nullptr);
    return connection;
}

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
int copyContent(const QString &source, const QString &target, std::chrono::milliseconds busy, int making = 0)
{
    const Connection from = connect(source, SQLITE_OPEN_READWRITE, busy);
    const Connection to = connect(target, SQLITE_OPEN_READWRITE | making, busy);
    if (!from || !to) {
        return SQLITE_CANTOPEN;
    }
    sqlite3_backup *backup = sqlite3_backup_init(to.get(), "main", from.get(), "main");
    if (backup == nullptr) {
        return sqlite3_errcode(to.get()) & 0xff;
    }
    int result = SQLITE_OK;
    while (result == SQLITE_OK) {
        result = VYXApplication::isEnding() ? SQLITE_INTERRUPT : sqlite3_backup_step(backup, pagesPerStep);
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
    const QByteArray found = kind(waiter);
    partial = found == "rows\n";
    if (!partial && found != "database\n") {
        return QString("Dump '%1' is missing or broken").arg(dump);
    }
    return partial ? QString() : build(waiter);
}

QString DatabaseRestore::apply(Waiter &waiter)
{
    QString fault = partial ? build(waiter) : QString();
    if (fault.isEmpty()) {
        fault = putInPlace(waiter);
        replacement.discard(waiter);
    }
    return fault;
}

/// Whatever a dump does before it fails, it does beside the live database: selected rows, too, are put into a
/// copy.
QString DatabaseRestore::build(Waiter &waiter)
{
    if (partial && !isRegular(livePath)) {
        return QString("Database '%1' does not exist: there is nothing to put the saved rows into")
            .arg(livePath);
    }
    if (!replacement.prepare()) {
        return QString("There is no place for a database beside '%1'").arg(livePath);
    }
    QString fault = partial ? copyLive(waiter) : QString();
    if (fault.isEmpty()) {
        fault = load(waiter);
    }
    if (fault.isEmpty()) {
        fault = faultOfLoaded(waiter);
    }
    if (!fault.isEmpty()) {
        replacement.discard(waiter);
    }
    return fault;
}

QString DatabaseRestore::copyLive(Waiter &waiter) const
{
    int result = SQLITE_CANTOPEN;
    waiter.runBeside(
        [&] { result = copyContent(livePath, replacement.path(), limits.busy, SQLITE_OPEN_CREATE); });
    return result == SQLITE_OK ? QString() : faultOfWriting(result);
}

QString DatabaseRestore::faultOfWriting(int result) const
{
    return QString("Database '%1' could not be written: %2").arg(livePath, sqlite3_errstr(result));
}

QByteArray DatabaseRestore::kind(Waiter &waiter) const
{
    constexpr qint64 nothingIsWritten = 0;
    const CommandResult result =
        runShellLine(waiter, kindLine.arg(ShellText::quoted(dump)),
                     {limits.wallClock, limits.processorTime, nothingIsWritten, limits.memory});
    return result.succeeded() ? result.output : QByteArray();
}

/// The shell's own commands in a dump must not run: they could do anything on the device. A tenth of what is
/// free is left to the others. A new database takes the live one's page size, which SQLite cannot change in
/// one that has a write-ahead log.
QString DatabaseRestore::load(Waiter &waiter) const
{
    constexpr int shares = 10;
    const QString database = replacement.path();
    const qint64 available = QStorageInfo(QFileInfo(database).path()).bytesAvailable();
    const qint64 fileSize = QFileInfo(database).size() + available - available / shares;
    const QString line = QString("zcat %1 && %2").arg(ShellText::quoted(dump), endOfInput);
    const QString busy = QString(".timeout %1").arg(limits.busy.count());
    const QString pageSize = QString("PRAGMA page_size=%1;").arg(pageSizeOf(livePath));
    const QStringList arguments = {"-init", "/dev/null", "-batch", "-safe",  "-bail",
                                   "-cmd",  busy,        "-cmd",   pageSize, database};
    logDebug("{ %1; } | %2", line, ShellText::commandLine("sqlite3", arguments));
    const auto owner = ownerOfPlace(database);
    if (owner && lchown(QFile::encodeName(database).constData(), owner->user, owner->group) != 0) {
        logDebug("'%1' has no owner of its own", database); // a new file, or a file system without owners
    }
    const CommandResult result =
        runFed(waiter, line, "sqlite3", arguments,
               {limits.wallClock, limits.processorTime, fileSize, limits.memory}, owner);
    if (result.finished && result.exitCode == endReached) {
        return {};
    }
    return QString("Dump '%1' could not be loaded: %2").arg(dump, result.errorText);
}

/// The journal has to be the one kind that leaves the live database's alone.
QString DatabaseRestore::faultOfLoaded(Waiter &waiter) const
{
    bool sound = false;
    waiter.runBeside([&] {
        const Connection database = connect(replacement.path(), SQLITE_OPEN_READWRITE);
        sound = database && valueOf(database.get(), "PRAGMA journal_mode=DELETE") == "delete" &&
                valueOf(database.get(), "PRAGMA quick_check(1)") == "ok";
    });
    return sound ? QString() : QString("Database '%1' made of dump '%2' is not sound").arg(livePath, dump);
}

QString DatabaseRestore::putInPlace(Waiter &waiter)
{
    int result = SQLITE_CANTOPEN;
    if (isRegular(livePath)) {
        waiter.runBeside([&] { result = copyContent(replacement.path(), livePath, limits.busy); });
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
