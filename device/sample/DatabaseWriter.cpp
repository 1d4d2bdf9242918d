#include "device/sample/DatabaseWriter.h"

#include "platform/logger/VYXLogger.h"

#include <QDateTime>
#include <QFile>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>

#include <cmath>
#include <sys/stat.h>
#include <utility>

namespace {

constexpr int rowIntervalMs = 100;

/// A temperature that rises and falls within a minute.
double measuredValue(const QDateTime &time)
{
    const double phase = static_cast<double>(time.toMSecsSinceEpoch() % 60000) / 60000.0;
    return 21.5 + 4.0 * std::sin(phase * 2.0 * M_PI);
}

} // namespace

DatabaseWriter::DatabaseWriter(QString path, QObject *parent)
    : QObject(parent), path(std::move(path)), connection("writer")
{
    connect(&timer, &QTimer::timeout, this, &DatabaseWriter::writeRow);
}

DatabaseWriter::~DatabaseWriter()
{
    close();
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
    QSqlDatabase database = QSqlDatabase::addDatabase("QSQLITE", connection);
    database.setDatabaseName(path);
    QSqlQuery query(database);
    const bool opened = database.open() && query.exec("PRAGMA journal_mode=WAL") &&
                        query.exec("CREATE TABLE IF NOT EXISTS samples"
                                   "(id INTEGER PRIMARY KEY, taken TEXT, value REAL)");
    if (!opened) {
        logError("Could not open %1: %2", path, database.lastError().text() + query.lastError().text());
        return false;
    }
    openedFile = fileNumber();
    return true;
}

void DatabaseWriter::close()
{
    QSqlDatabase::database(connection, false).close();
    QSqlDatabase::removeDatabase(connection);
}

void DatabaseWriter::writeRow()
{
    if (lastWriteFailed || fileNumber() != openedFile) {
        close();
        if (!open()) {
            lastWriteFailed = true;
            return;
        }
    }
    const QDateTime time = QDateTime::currentDateTimeUtc();
    QSqlQuery query(QSqlDatabase::database(connection, false));
    query.prepare("INSERT INTO samples(taken, value) VALUES(?, ?)");
    query.addBindValue(time.toString(Qt::ISODateWithMs));
    query.addBindValue(measuredValue(time));
    lastWriteFailed = !query.exec();
    if (lastWriteFailed) {
        logWarning("Could not write a row into %1: %2", path, query.lastError().text());
    }
}

quint64 DatabaseWriter::fileNumber() const
{
    struct stat status = {};
    return stat(QFile::encodeName(path).constData(), &status) == 0 ? status.st_ino : 0;
}
