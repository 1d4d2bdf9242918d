#include "staging/DatabaseStaging.h"

#include "catalogue/ItemNames.h"
#include "commands/Command.h"
#include "commands/Digest.h"
#include "commands/FileCopy.h"
#include "platform/core/Waiter.h"
#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"
#include "staging/DatabaseDump.h"
#include "staging/RememberedDigests.h"
#include "staging/StagingError.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <array>
#include <utility>

namespace {

/// Status of sqlite3 when it cannot carry a statement out as it is written, whatever the device's state.
constexpr int badCommand = 1;

constexpr std::array sideFileSuffixes = {"-wal", "-journal"};

void removeSideFiles(const QString &copy)
{
    for (const char *suffix : {"-wal", "-journal", "-shm"}) {
        QFile::remove(copy + suffix);
    }
}

QString fileNameOf(const QString &database)
{
    return database + ".data";
}

/// What SQLite makes of a copy.
struct CopyState
{
    bool sound = false;
    qint64 objects = 0; ///< tables, indexes, views and triggers that a dump makes
    QString pragmas;    ///< part of the content that ".dump" leaves out
};

CopyState inspectCopy(Waiter &waiter, const QString &copy)
{
    const CommandResult result =
        runCommand(waiter, "sqlite3",
                   {copy, "PRAGMA quick_check(1); PRAGMA page_count; PRAGMA user_version; "
                          "PRAGMA application_id; SELECT count(*) FROM sqlite_master "
                          "WHERE sql IS NOT NULL AND name NOT LIKE 'sqlite\\_%' ESCAPE '\\';"});
    QStringList values = QString::fromUtf8(result.output).split('\n', Qt::SkipEmptyParts);
    const bool sound = !values.isEmpty() && values.takeFirst() == "ok";
    CopyState state;
    // A file that is cut off within its first page passes for an empty database.
    state.sound = sound && result.succeeded() && values.size() == 4 &&
                  (values.at(0) != "0" || QFileInfo(copy).size() == 0);
    state.objects = values.value(3).toLongLong();
    if (values.value(1, "0") != "0") {
        state.pragmas += QString("PRAGMA user_version=%1;").arg(values.at(1).toInt());
    }
    if (values.value(2, "0") != "0") {
        state.pragmas += QString("PRAGMA application_id=%1;").arg(values.at(2).toInt());
    }
    return state;
}

} // namespace

DatabaseStaging::DatabaseStaging(QString moduleName, const Artefacts &artefacts,
                                 RememberedDigests &remembered, Waiter &waiter)
    : module(std::move(moduleName)), data(module), artefacts(artefacts), remembered(remembered),
      waiter(waiter)
{
}

SavedItem DatabaseStaging::itemOf(const QString &database) const
{
    return {DatabaseItem, module, database, priorityName(RestorableOrder::high)};
}

QString DatabaseStaging::copyPath(const QString &database) const
{
    return DevicePaths::staged(module + "/" + database + ".data");
}

void DatabaseStaging::copy(const QString &database)
{
    found[database] = look(database);
    const QString digest = found[database].digest;
    if (!digest.isEmpty() &&
        !artefacts.isMade(module, ChecksumLine::database(itemOf(database).key(), digest))) {
        return;
    }
    found[database].digest.clear();
    logDebug("Copying database '%2' of module '%1' into temp dir", module, database);
    const QString target = copyPath(database);
    if (!copyWithSideFiles(fileNameOf(database), target)) {
        QFile::remove(target);
        removeSideFiles(target);
    }
}

/// The digest is that of the file itself: of one that has to be read it is taken here only when a copy would
/// serve for nothing else.
DatabaseStaging::Found DatabaseStaging::look(const QString &database)
{
    const QString file = fileNameOf(database);
    const Beneath::Opened opened = data.openRegular(file);
    if (!opened.descriptor.isOpen() || !isAlone(file)) {
        return {};
    }
    const auto state = [&] { return contentState(opened.descriptor.status()); };
    Found now = {.state = state(), .digest = {}};
    const QString key = module + "/" + file;
    now.digest = remembered.find(key, now.state);
    if (now.digest.isEmpty() && !artefacts.areMade()) {
        waiter.runBeside([&] { now.digest = fileDigest(std::as_const(waiter), opened.descriptor); });
        now.digest = remembered.enter(key, now.state, now.digest, state);
    }
    return now;
}

/// True when nothing of the database lies outside of its file.
bool DatabaseStaging::isAlone(const QString &file) const
{
    return std::ranges::all_of(sideFileSuffixes, [&](const char *suffix) {
        const Beneath::Opened sideFile = data.openRegular(file + suffix);
        return sideFile.state == Beneath::State::Missing ||
               (sideFile.descriptor.isOpen() && sideFile.descriptor.status().st_size == 0);
    });
}

ChecksumLine DatabaseStaging::missingLine(const QString &database) const
{
    reportStagingError(QString("the copy of '%1'").arg(data.pathOf(fileNameOf(database))));
    return ChecksumLine::database(itemOf(database).key(), {});
}

/// The file name is that in the module's data directory.
bool DatabaseStaging::copyWithSideFiles(const QString &file, const QString &target)
{
    if (!copyContent(waiter, data.openRegular(file).descriptor, target)) {
        return false;
    }
    for (const char *suffix : sideFileSuffixes) {
        const Beneath::Opened sideFile = data.openRegular(file + suffix);
        if (sideFile.state == Beneath::State::Missing || sideFile.state == Beneath::State::WrongKind) {
            continue;
        }
        if (sideFile.descriptor.isOpen() && sideFile.descriptor.status().st_size == 0) {
            continue;
        }
        if (!copyContent(waiter, sideFile.descriptor, target + suffix)) {
            return false;
        }
    }
    return true;
}

ChecksumLine DatabaseStaging::stageCopy(const RestorableDatabase &database)
{
    const QString name = database.getName();
    const QString copy = copyPath(name);
    const Found then = found.value(name);
    ChecksumLine line = ChecksumLine::database(itemOf(name).key(), then.digest);
    if (line.digest().isEmpty()) {
        line.setDigest(remembered.enter(module + "/" + fileNameOf(name), then.state, digestOfCopy(copy), [&] {
            return contentState(data.openRegular(fileNameOf(name)).descriptor.status());
        }));
    }
    if (line.digest().isEmpty()) {
        reportStagingError(QString("the copy of '%1'").arg(data.pathOf(fileNameOf(name))));
    } else if (artefacts.isMade(module, line) && !dump(database, copy)) {
        QFile::remove(itemOf(name).stagedPath());
        line.setDigest({});
    }
    QFile::remove(copy);
    removeSideFiles(copy);
    return line;
}

bool DatabaseStaging::rememberRestored(const QString &database, const QString &digest)
{
    const QString file = fileNameOf(database);
    const Beneath::Opened opened = data.openRegular(file);
    return !opened.descriptor.isOpen() || !isAlone(file) ||
           remembered.enterRestored(module + "/" + file, opened.descriptor, digest);
}

/// Opening a copy that came with side files rolls a hot journal back; the checkpoint moves committed rows out
/// of a write-ahead log.
QString DatabaseStaging::digestOfCopy(const QString &copy)
{
    const bool alone = std::ranges::none_of(sideFileSuffixes,
                                            [&](const char *suffix) { return QFile::exists(copy + suffix); });
    const bool whole =
        QFile::exists(copy) &&
        (alone || runCommand(waiter, "sqlite3",
                             {copy, "SELECT count(*) FROM sqlite_master; PRAGMA wal_checkpoint(TRUNCATE);"})
                      .succeeded());
    removeSideFiles(copy);
    return whole ? fileDigest(waiter, copy) : QString();
}

bool DatabaseStaging::dump(const RestorableDatabase &database, const QString &copy)
{
    const QString name = database.getName();
    logDebug("Dump database '%1' of module '%2'", name, module);
    const CopyState state = inspectCopy(waiter, copy);
    if (!state.sound) {
        logError("Database '%1' of module '%2' is not sound: its last saved copy stays", name, module);
        return false;
    }
    const QString target = itemOf(name).stagedPath();
    const bool dumped = database.getSqlCommands().isEmpty()
                            ? DatabaseDump::dumpWhole(waiter, copy, state.objects, state.pragmas, target)
                            : dumpSelections(database, copy, target);
    if (!dumped) {
        logError("Database '%1' of module '%2' could not be dumped: its last saved copy stays", name, module);
    }
    return dumped;
}

bool DatabaseStaging::dumpSelections(const RestorableDatabase &database, const QString &copy,
                                     const QString &dumpPath)
{
    QList<DatabaseDump::Selection> made;
    for (const DatabaseDump::Selection &selection : DatabaseDump::selections(database.getSqlCommands())) {
        const CommandResult result = DatabaseDump::select(waiter, selection, copy);
        if (result.succeeded()) {
            made << selection;
        } else if (result.finished && result.exitCode == badCommand) {
            logWarning("The rows of table '%1' of database '%2' of module '%3' cannot be saved: %4",
                       selection.table, database.getName(), module, result.errorText);
        } else {
            reportStagingError(QString("the rows of table '%1': %2").arg(selection.table, result.errorText));
            return false;
        }
    }
    return DatabaseDump::dumpRows(waiter, made, copy, dumpPath);
}
