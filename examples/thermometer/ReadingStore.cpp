#include "examples/thermometer/ReadingStore.h"

#include "platform/logger/VYXLogger.h"

#include <QFile>

#include <sqlite3.h>

namespace {

constexpr int schemaVersion = 2;
constexpr qsizetype mostWaiting = 1000;
constexpr int lockLimitMs = 100; // nothing else is answered meanwhile

constexpr auto newDatabase =
    "BEGIN IMMEDIATE;"
    "CREATE TABLE reading(id INTEGER PRIMARY KEY AUTOINCREMENT, taken INTEGER, value REAL,"
    " kept INTEGER NOT NULL DEFAULT 0);"
    "CREATE TABLE total(readings INTEGER NOT NULL);"
    "INSERT INTO total VALUES(0); PRAGMA user_version = 2; COMMIT";

int readNumber(void *number, int, char **values, char **)
{
    *static_cast<int *>(number) = QByteArray(values[0]).toInt();
    return 0;
}

} // namespace

void ReadingStore::Closing::operator()(sqlite3 *handle) const
{
    sqlite3_close(handle);
}

bool ReadingStore::open()
{
    if (database) {
        return true;
    }
    sqlite3 *handle = nullptr;
    int version = -1;
    sqlite3_open(QFile::encodeName(path).constData(), &handle);
    database.reset(handle);
    sqlite3_busy_timeout(handle, lockLimitMs);
    sqlite3_exec(handle, "PRAGMA user_version", readNumber, &version, nullptr);
    if (version == 0 && execute("PRAGMA journal_mode = WAL") && execute(newDatabase)) {
        version = schemaVersion;
    }
    if (version != schemaVersion) {
        close();
    }
    return database != nullptr;
}

void ReadingStore::add(const Reading &reading)
{
    if (waiting.size() == mostWaiting) {
        waiting.removeFirst();
    }
    waiting.append(reading);
}

bool ReadingStore::store()
{
    if (waiting.isEmpty()) {
        return true;
    }
    const bool stored = open() && insertWaiting();
    if (stored) {
        waiting.clear();
    } else {
        close(); // rolls back
    }
    if (!stored && storing) {
        logWarning("The readings cannot be stored at present");
    }
    storing = stored;
    return stored;
}

bool ReadingStore::execute(const char *sql) const
{
    return sqlite3_exec(database.get(), sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

bool ReadingStore::insertWaiting() const
{
    sqlite3_stmt *insert = nullptr;
    bool done = execute("BEGIN IMMEDIATE") &&
                sqlite3_prepare_v2(database.get(), "INSERT INTO reading(taken, value) VALUES(?, ?)", -1,
                                   &insert, nullptr) == SQLITE_OK;
    for (qsizetype index = 0; done && index < waiting.size(); ++index) {
        sqlite3_bind_int64(insert, 1, waiting.at(index).taken);
        sqlite3_bind_double(insert, 2, waiting.at(index).value);
        done = sqlite3_step(insert) == SQLITE_DONE;
        sqlite3_reset(insert);
    }
    sqlite3_finalize(insert);
    const QByteArray count = "UPDATE total SET readings = readings + " + QByteArray::number(waiting.size());
    return done && execute(count.constData()) && execute("COMMIT");
}
