#include "reset/ResetDatabase.h"

#include "catalogue/ItemNames.h"
#include "platform/core/VYXApplication.h"
#include "platform/DevicePaths.h"

#include <QDeadlineTimer>
#include <QFileInfo>

#include <sqlite3.h>

using namespace std::chrono_literals;

namespace {

constexpr auto commandLimit = 60s;
constexpr auto lockLimit = 5s;
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
    const QString file = databaseFile(module, name);
    connection = file.isEmpty() ? nullptr : connectToDatabase(file, SQLITE_OPEN_READWRITE, lockLimit);
    if (!connection) {
        return false;
    }
    // A module's triggers may use its virtual tables: an index of its texts is one.
    sqlite3_db_config(connection.get(), SQLITE_DBCONFIG_TRUSTED_SCHEMA, 1, nullptr);
    sqlite3_set_authorizer(connection.get(), authorize, nullptr);
    return true;
}

QString ResetDatabase::execute(const QString &sql)
{
    if (!connection) {
        return {};
    }
    sqlite3 *handle = connection.get();
    QDeadlineTimer deadline(commandLimit);
    sqlite3_progress_handler(handle, stepsBetweenLooks, mustStop, &deadline);
    char *message = nullptr;
    const int result = sqlite3_exec(handle, sql.toUtf8().constData(), nullptr, nullptr, &message);
    sqlite3_progress_handler(handle, 0, nullptr, nullptr);
    const QString text = QString::fromUtf8(message != nullptr ? message : sqlite3_errstr(result));
    sqlite3_free(message);
    return result == SQLITE_OK ? QString() : text;
}
