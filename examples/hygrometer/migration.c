/* HygrometerMigration MODULE SAVED_RELEASE ...: brings the readings of release 2025 (user_version 1) to those
 * of release 2026 (user_version 2), which counts them. */
#define _XOPEN_SOURCE 700

#include <limits.h>
#include <sqlite3.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

static int readVersion(void *version, int columns, char **values, char **names)
{
    *(int *)version = atoi(values[0]);
    return 0;
}

/* Another run may have been faster, so the version is looked at within the transaction. */
static int migrate(sqlite3 *database)
{
    int version = 0;
    int result = sqlite3_exec(database, "BEGIN IMMEDIATE; PRAGMA user_version", readVersion, &version, NULL);
    if (result == SQLITE_OK && version < 2) {
        result = sqlite3_exec(database,
                              "CREATE TABLE total(readings INTEGER NOT NULL);"
                              "INSERT INTO total SELECT count(*) FROM reading;"
                              "PRAGMA user_version = 2",
                              NULL, NULL, NULL);
    }
    return result == SQLITE_OK ? sqlite3_exec(database, "COMMIT", NULL, NULL, NULL) : result;
}

int main(int count, char **arguments)
{
    char path[PATH_MAX];
    sqlite3 *database = NULL;
    const char *root = getenv("VYX_DEVICE_ROOT");
    if (count < 3) {
        fprintf(stderr, "usage: HygrometerMigration MODULE SAVED_RELEASE\n");
        return EXIT_FAILURE;
    }
    snprintf(path, sizeof path, "%s/data/VYXApplication/%s/readings.data", root != NULL ? root : "",
             arguments[1]);
    if (access(path, F_OK) != 0) {
        return EXIT_SUCCESS; /* there is nothing to migrate */
    }
    int result = sqlite3_open_v2(path, &database, SQLITE_OPEN_READWRITE, NULL);
    sqlite3_busy_timeout(database, 10000); /* the module runs meanwhile */
    result = result == SQLITE_OK ? migrate(database) : result;
    if (result == SQLITE_OK) {
        printf("%s migrated from release %s\n", arguments[1], arguments[2]);
    } else {
        fprintf(stderr, "%s could not be migrated from release %s: %s\n", arguments[1], arguments[2],
                sqlite3_errmsg(database));
    }
    sqlite3_close(database); /* what was not committed is undone */
    return result == SQLITE_OK ? EXIT_SUCCESS : EXIT_FAILURE;
}
