#include "reset/ResetDatabase.h"

#include "catalogue/ItemNames.h"
#include "platform/core/VYXApplication.h"
#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"

#include <QDeadlineTimer>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlDriver>
#include <QSqlQuery>
#include <QUrl>
#include <QVariant>

#include <sqlite3.h>

namespace {

constexpr int commandLimitMs = 60000;
constexpr int stepsBetweenLooks = 10000;

/// The file of a database, or nothing when there is none inside the module's data directory.
QString databaseFile(const QString &module, const QString &name)
{
    const QFileInfo directory(DevicePaths::moduleData(module));
    const QFileInfo file(directory.filePath() + "/" + name + ".data");
    const bool plainName = !name.isEmpty() && !name.contains('/') && ItemNames::isModuleName(module);
    const bool inside = file.canonicalFilePath().startsWith(directory.canonicalFilePath() + "/");
    return plainName && file.isFile() && inside ? file.canonicalFilePath() : QString();
}

/// Opened as a URI, since only that says that a missing file is not created.
QString existingFileUri(const QString &path)
{
    return "file:" + QString::fromLatin1(QUrl::toPercentEncoding(path, "/")) + "?mode=rw";
}

/// The handle of SQLite, unless the driver brings another build of it than the one this process calls.
sqlite3 *handleOf(const QSqlDatabase &database)
{
    QSqlQuery query(database);
    const bool sameLibrary = query.exec("SELECT sqlite_source_id()") && query.next() &&
                             query.value(0).toString() == sqlite3_sourceid();
    const QVariant handle = database.driver()->handle();
    if (!sameLibrary || qstrcmp(handle.typeName(), "sqlite3*") != 0) {
        logError("The SQL driver's build of SQLite is not the service's: it is not used");
        return nullptr;
    }
    return *static_cast<sqlite3 *const *>(handle.constData());
}

/// Refuses files beside the database; SQLite itself attaches one without a name for VACUUM.
int authorize(void *, int action, const char *file, const char *, const char *, const char *)
{
    const bool attachesFile = action == SQLITE_ATTACH && (file == nullptr || *file != '\0');
    return attachesFile ? SQLITE_DENY : SQLITE_OK;
}

int mustStop(void *deadline)
{
    return VYXApplication::isEnding() || static_cast<const QDeadlineTimer *>(deadline)->hasExpired() ? 1 : 0;
}

} // namespace

bool ResetDatabase::open(const QString &module, const QString &name)
{
    close();
    const QString file = databaseFile(module, name);
    if (file.isEmpty()) {
        return false;
    }
    QSqlDatabase database = QSqlDatabase::addDatabase("QSQLITE", QSqlDatabase::defaultConnection);
    database.setConnectOptions("QSQLITE_OPEN_URI");
    database.setDatabaseName(existingFileUri(file));
    handle = database.open() ? handleOf(database) : nullptr;
    if (handle == nullptr) {
        database = QSqlDatabase();
        close();
        return false;
    }
    sqlite3_set_authorizer(handle, authorize, nullptr);
    return true;
}

void ResetDatabase::close()
{
    handle = nullptr;
    if (QSqlDatabase::contains(QSqlDatabase::defaultConnection)) {
        QSqlDatabase::database(QSqlDatabase::defaultConnection, false).close();
        QSqlDatabase::removeDatabase(QSqlDatabase::defaultConnection);
    }
}

QString ResetDatabase::execute(const QString &sql)
{
    if (handle == nullptr) {
        return {};
    }
    QDeadlineTimer deadline(commandLimitMs);
    sqlite3_progress_handler(handle, stepsBetweenLooks, mustStop, &deadline);
    char *message = nullptr;
    const int result = sqlite3_exec(handle, sql.toUtf8().constData(), nullptr, nullptr, &message);
    sqlite3_progress_handler(handle, 0, nullptr, nullptr);
    const QString text = QString::fromUtf8(message != nullptr ? message : sqlite3_errstr(result));
    sqlite3_free(message);
    return result == SQLITE_OK ? QString() : text;
}
