/* Hygrometer: a module of the middleware that measures the air's humidity twenty times a second, in plain C
 * with sd-bus and SQLite. It has one database, one file of settings and one directory of exports, pauses when
 * they are saved or restored, and resets what no SQL command of its restorable.xml reaches. */
#define _XOPEN_SOURCE 700

#include <ftw.h>
#include <limits.h>
#include <math.h>
#include <signal.h>
#include <sqlite3.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>
#include <time.h>
#include <unistd.h>

#define NAME "Hygrometer"
#define OBJECT "/com/corvane/Pelorin/" NAME
#define EVENTS "com.corvane.Pelorin.VYXEvent"

enum {
    schemaVersion = 2,
    mostWaiting = 1000,
    measurePeriodUs = 50000,
    timerAccuracyUs = 1000,
    measuresBetweenStores = 40,
    lockLimitMs = 100 /* nothing else is answered meanwhile; what was not stored is tried again */
};

static const char *const newDatabase =
    "BEGIN IMMEDIATE;"
    "CREATE TABLE reading(id INTEGER PRIMARY KEY AUTOINCREMENT, taken INTEGER, value REAL,"
    " kept INTEGER NOT NULL DEFAULT 0);"
    "CREATE TABLE total(readings INTEGER NOT NULL);"
    "INSERT INTO total VALUES(0); PRAGMA user_version = 2; COMMIT";

struct Reading
{
    int64_t taken; /* seconds since 1970 */
    double value;
};

struct Module
{
    sd_event *loop;
    sd_bus *bus;
    sd_event_source *timer;
    sqlite3 *database; /* NULL while it is closed */
    bool storing;      /* false when the last attempt failed: said once */
    struct Reading waiting[mostWaiting];
    int waitingCount;
    int taken;
    char unit[32];
    int sensor; /* looked at when the process starts, and then no more */
};

/* A path below the module's data directory; valid until the next call. */
static const char *dataPath(const char *item)
{
    static char path[PATH_MAX];
    const char *root = getenv("VYX_DEVICE_ROOT");
    snprintf(path, sizeof path, "%s/data/VYXApplication/" NAME "/%s", root != NULL ? root : "", item);
    return path;
}

static void readSettings(struct Module *module, int *sensor)
{
    char line[128];
    strcpy(module->unit, "percent");
    *sensor = 0;
    FILE *file = fopen(dataPath("settings.conf"), "r");
    while (file != NULL && fgets(line, sizeof line, file) != NULL) {
        sscanf(line, "unit=%31s", module->unit);
        sscanf(line, "sensor=%d", sensor);
    }
    if (file != NULL) {
        fclose(file);
    }
}

/* Whole or not at all: a power cut leaves the old settings. */
static void writeDefaultSettings(void)
{
    char temporary[PATH_MAX];
    strcpy(temporary, dataPath("settings.new"));
    FILE *file = fopen(temporary, "w");
    bool done = file != NULL && fputs("unit=percent\nsensor=0\n", file) >= 0 && fflush(file) == 0 &&
                fsync(fileno(file)) == 0;
    done = file != NULL && fclose(file) == 0 && done && rename(temporary, dataPath("settings.conf")) == 0;
    if (!done) {
        fprintf(stderr, "error " NAME ": The settings cannot be written\n");
    }
}

static bool execute(struct Module *module, const char *sql)
{
    return sqlite3_exec(module->database, sql, NULL, NULL, NULL) == SQLITE_OK;
}

static int readNumber(void *number, int columns, char **values, char **names)
{
    *(int *)number = atoi(values[0]);
    return 0;
}

static void closeDatabase(struct Module *module)
{
    sqlite3_close(module->database);
    module->database = NULL;
}

/* False when there is none that can be written, also when its data are of another release: those are left to
 * the migration program. */
static bool openDatabase(struct Module *module)
{
    if (module->database != NULL) {
        return true;
    }
    int version = -1;
    sqlite3_open(dataPath("readings.data"), &module->database);
    sqlite3_busy_timeout(module->database, lockLimitMs);
    sqlite3_exec(module->database, "PRAGMA user_version", readNumber, &version, NULL);
    if (version == 0 && execute(module, "PRAGMA journal_mode = WAL") && execute(module, newDatabase)) {
        version = schemaVersion;
    }
    if (version != schemaVersion) {
        closeDatabase(module);
    }
    return module->database != NULL;
}

static bool insertWaiting(struct Module *module)
{
    sqlite3_stmt *insert = NULL;
    char count[80];
    snprintf(count, sizeof count, "UPDATE total SET readings = readings + %d", module->waitingCount);
    bool done = execute(module, "BEGIN IMMEDIATE") &&
                sqlite3_prepare_v2(module->database, "INSERT INTO reading(taken, value) VALUES(?, ?)", -1,
                                   &insert, NULL) == SQLITE_OK;
    for (int index = 0; done && index < module->waitingCount; ++index) {
        sqlite3_bind_int64(insert, 1, module->waiting[index].taken);
        sqlite3_bind_double(insert, 2, module->waiting[index].value);
        done = sqlite3_step(insert) == SQLITE_DONE;
        sqlite3_reset(insert);
    }
    sqlite3_finalize(insert);
    return done && execute(module, count) && execute(module, "COMMIT");
}

/* One short transaction. What cannot be stored stays in memory. */
static void storeReadings(struct Module *module)
{
    if (module->waitingCount == 0) {
        return;
    }
    const bool stored = openDatabase(module) && insertWaiting(module);
    if (stored) {
        module->waitingCount = 0;
    } else {
        closeDatabase(module); /* rolls back */
    }
    if (!stored && module->storing) {
        fprintf(stderr, "warning " NAME ": The readings cannot be stored at present\n");
    }
    module->storing = stored;
}

static int onMeasure(sd_event_source *timer, uint64_t due, void *userdata)
{
    struct Module *module = userdata;
    if (module->waitingCount == mostWaiting) {
        --module->waitingCount;
        memmove(module->waiting, module->waiting + 1, sizeof module->waiting - sizeof *module->waiting);
    }
    const double phase = (double)due / 1e7;
    const struct Reading reading = {time(NULL), 45.0 + 20.0 * sin(phase) + module->sensor};
    module->waiting[module->waitingCount++] = reading;
    if (++module->taken % measuresBetweenStores == 0) {
        storeReadings(module);
    }
    return sd_event_source_set_time_relative(timer, measurePeriodUs);
}

/* The text argument of that name; NULL when the event has none. Valid as long as the event. */
static const char *textArgument(sd_bus_message *event, const char *wanted)
{
    const char *name = NULL;
    const char *value = NULL;
    if (!sd_bus_message_has_signature(event, "a{sv}s") ||
        sd_bus_message_enter_container(event, 'a', "{sv}") < 0) {
        return NULL;
    }
    while (sd_bus_message_enter_container(event, 'e', "sv") > 0) {
        if (sd_bus_message_read(event, "s", &name) <= 0 || strcmp(name, wanted) == 0) {
            return sd_bus_message_read(event, "v", "s", &value) > 0 ? value : NULL;
        }
        if (sd_bus_message_skip(event, "v") < 0 || sd_bus_message_exit_container(event) < 0) {
            return NULL;
        }
    }
    return NULL;
}

/* "A:B:C:" names A, B and C. */
static bool namesThisModule(const char *names)
{
    const size_t length = strlen(NAME);
    while (names != NULL && *names != '\0') {
        const size_t part = strcspn(names, ":");
        if (part == length && strncmp(names, NAME, length) == 0) {
            return true;
        }
        names += part + (names[part] == ':');
    }
    return false;
}

static int onPauseRequest(sd_bus_message *event, void *userdata, sd_bus_error *error)
{
    struct Module *module = userdata;
    if (!namesThisModule(textArgument(event, "ModulesPidsList"))) {
        return 0;
    }
    storeReadings(module);
    closeDatabase(module);
    sd_bus_emit_signal(module->bus, OBJECT, EVENTS, "stop_save_restore_OK", "a{sv}s", 1, "ModuleName", "s",
                       NAME, "");
    if (sd_bus_flush(module->bus) >= 0) {
        kill(getpid(), SIGSTOP); /* returns when the service has sent SIGCONT */
    }
    return 0;
}

static int onRestoreFinished(sd_bus_message *event, void *userdata, sd_bus_error *error)
{
    int nextSensor = 0;
    if (namesThisModule(textArgument(event, "modules"))) {
        readSettings(userdata, &nextSensor);
    }
    return 0;
}

/* Whoever has changed what is looked at only at the start needs a reboot. */
static int reportReset(struct Module *module, const char *event)
{
    int nextSensor = 0;
    writeDefaultSettings();
    readSettings(module, &nextSensor);
    module->waitingCount = 0;
    return sd_bus_emit_signal(module->bus, OBJECT, EVENTS, event, "a{sv}s", 2, "ModuleName", "s", NAME,
                              "NeedReboot", "b", nextSensor != module->sensor, "");
}

static int onResetToDefault(sd_bus_message *event, void *userdata, sd_bus_error *error)
{
    return reportReset(userdata, "reset_default_done");
}

static int removeEntry(const char *path, const struct stat *status, int kind, struct FTW *position)
{
    return position->level > 0 ? remove(path) : 0;
}

/* Nothing is measured any more: every module is ended next. */
static int onResetToFactory(sd_bus_message *event, void *userdata, sd_bus_error *error)
{
    struct Module *module = userdata;
    sd_event_source_set_enabled(module->timer, SD_EVENT_OFF);
    closeDatabase(module);
    nftw(dataPath("exports"), removeEntry, 16, FTW_DEPTH | FTW_PHYS);
    return reportReset(module, "reset_factory_done");
}

static int onReadingsTaken(sd_bus_message *call, void *userdata, sd_bus_error *error)
{
    return sd_bus_reply_method_return(call, "i", ((struct Module *)userdata)->taken);
}

static int onUnit(sd_bus_message *call, void *userdata, sd_bus_error *error)
{
    return sd_bus_reply_method_return(call, "s", ((struct Module *)userdata)->unit);
}

static const sd_bus_vtable methods[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("readingsTaken", "", "i", onReadingsTaken, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("unit", "", "s", onUnit, SD_BUS_VTABLE_UNPRIVILEGED), SD_BUS_VTABLE_END};

/* Everything is done by one loop, so the module always answers. The name comes last: who owns it is ready. */
static int start(struct Module *module)
{
    static const struct
    {
        const char *event;
        sd_bus_message_handler_t handler;
    } heard[] = {{"stop_save_restore", onPauseRequest},
                 {"restore_finished", onRestoreFinished},
                 {"reset_data_default", onResetToDefault},
                 {"reset_data_factory", onResetToFactory}};
    int result = sd_bus_open_system(&module->bus);
    for (size_t index = 0; result >= 0 && index < sizeof heard / sizeof *heard; ++index) {
        result = sd_bus_match_signal(module->bus, NULL, NULL, NULL, EVENTS, heard[index].event,
                                     heard[index].handler, module);
    }
    if (result < 0 || (result = sd_event_default(&module->loop)) < 0 ||
        (result = sd_bus_attach_event(module->bus, module->loop, SD_EVENT_PRIORITY_NORMAL)) < 0 ||
        (result = sd_bus_set_exit_on_disconnect(module->bus, true)) < 0 ||
        (result = sd_event_add_signal(module->loop, NULL, SIGTERM | SD_EVENT_SIGNAL_PROCMASK, NULL, NULL)) <
            0 ||
        (result = sd_event_add_signal(module->loop, NULL, SIGINT | SD_EVENT_SIGNAL_PROCMASK, NULL, NULL)) <
            0 ||
        (result = sd_event_add_time_relative(module->loop, &module->timer, CLOCK_MONOTONIC, 0,
                                             timerAccuracyUs, onMeasure, module)) < 0 ||
        (result = sd_event_source_set_enabled(module->timer, SD_EVENT_ON)) < 0 ||
        (result = sd_bus_add_object_vtable(module->bus, NULL, OBJECT, "com.corvane.Pelorin.VYXInterface",
                                           methods, module)) < 0) {
        return result;
    }
    return sd_bus_request_name(module->bus, "com.corvane.Pelorin." NAME, 0);
}

int main(void)
{
    static struct Module module = {.storing = true};
    mkdir(dataPath(""), 0755);
    mkdir(dataPath("exports"), 0755);
    if (access(dataPath("settings.conf"), F_OK) != 0) {
        writeDefaultSettings();
    }
    readSettings(&module, &module.sensor);
    openDatabase(&module); /* so that it is there when the first save looks */

    int status = start(&module);
    status = status < 0 ? status : sd_event_loop(module.loop);
    if (status < 0) {
        fprintf(stderr, NAME ": no place on the bus: %s\n", strerror(-status));
    }
    storeReadings(&module);
    closeDatabase(&module);
    sd_event_source_unref(module.timer);
    sd_bus_flush_close_unref(module.bus);
    sd_event_unref(module.loop);
    return status == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
