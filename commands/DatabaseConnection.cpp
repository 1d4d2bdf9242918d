#include "commands/DatabaseConnection.h"

#include "platform/core/VYXApplication.h"
#include "platform/core/Waiter.h"

#include <QFile>
#include <QFileInfo>

#include <sqlite3.h>

namespace {

constexpr int instructionsBetweenLooks = 100000;

int mustStop(void *waiter)
{
    const bool ends =
        waiter != nullptr ? static_cast<const Waiter *>(waiter)->mustEnd() : VYXApplication::isEnding();
    return ends ? 1 : 0;
}

} // namespace

void DatabaseClosing::operator()(sqlite3 *database) const
{
    sqlite3_close(database);
}

DatabaseConnection connectToDatabase(const QString &path, int flags, std::chrono::milliseconds busy,
                                     const Waiter *waiter)
{
    const QFileInfo info(path);
    const QString real = QFileInfo(info.path()).canonicalFilePath() + "/" + info.fileName();
    sqlite3 *handle = nullptr;
    const int result =
        sqlite3_open_v2(QFile::encodeName(real).constData(), &handle, flags | SQLITE_OPEN_NOFOLLOW, nullptr);
    DatabaseConnection connection(handle);
    if (result != SQLITE_OK) {
        return nullptr;
    }
    sqlite3_busy_timeout(handle, static_cast<int>(busy.count()));
    sqlite3_db_config(handle, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    sqlite3_progress_handler(handle, instructionsBetweenLooks, mustStop, const_cast<Waiter *>(waiter));
    return connection;
}
