#include "device/sample/DatabaseWriter.h"

#include "platform/logger/VYXLogger.h"

#include <QDateTime>
#include <QFile>

#include <cmath>
#include <sqlite3.h>
#include <sys/stat.h>
#include <utility>

namespace {

constexpr int rowIntervalMs = 100;
constexpr int lockLimitMs = 5000;

/// A temperature that rises and falls within a minute.
double measuredValue(const QDateTime &time)
{
    const double phase = static_cast<double>(time.toMSecsSinceEpoch() % 60000) / 60000.0;
    return 21.5 + 4.0 * std::sin(phase * 2.0 * M_PI);
}

} // namespace

void DatabaseWriter::Closing::operator()(sqlite3 *handle) const
{
    sqlite3_close(handle);
}

DatabaseWriter::DatabaseWriter(QString path, QObject *parent) : QObject(parent), path(std::move(path))
{
    connect(&timer, &QTimer::timeout, this, &DatabaseWriter::writeRow);
}

bool DatabaseWriter::start()
{
    if (!open()) {
        return false;
    }
    timer.start(rowIntervalMs);
    return true;
}

bool DatabaseWriter::open()
{
    database.reset();
    sqlite3 *handle = nullptr;
    const int result = sqlite3_open(QFile::encodeName(path).constData(), &handle);
    database.reset(handle);
    sqlite3_busy_timeout(handle, lockLimitMs);
    if (result != SQLITE_OK || !execute("PRAGMA journal_mode=WAL;"
                                        "CREATE TABLE IF NOT EXISTS samples"
                                        "(id INTEGER PRIMARY KEY, taken TEXT, value REAL)")) {
        logError("Could not open %1: %2", path, sqlite3_errmsg(handle));
        return false;
    }
    openedFile = fileNumber();
    return true;
}

bool DatabaseWriter::execute(const QString &sql) const
{
    return sqlite3_exec(database.get(), sql.toUtf8().constData(), nullptr, nullptr, nullptr) == SQLITE_OK;
}

void DatabaseWriter::writeRow()
{
    if ((lastWriteFailed || fileNumber() != openedFile) && !open()) {
        lastWriteFailed = true;
        return;
    }
    const QDateTime time = QDateTime::currentDateTimeUtc();
    lastWriteFailed = !execute(QString("INSERT INTO samples(taken, value) VALUES('%1', %2)")
                                   .arg(time.toString(Qt::ISODateWithMs))
                                   .arg(measuredValue(time)));
    if (lastWriteFailed) {
        logWarning("Could not write a row into %1: %2", path, sqlite3_errmsg(database.get()));
    }
}

quint64 DatabaseWriter::fileNumber() const
{
    struct stat status = {};
    return stat(QFile::encodeName(path).constData(), &status) == 0 ? status.st_ino : 0;
}
