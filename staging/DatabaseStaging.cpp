#include "staging/DatabaseStaging.h"

#include "catalogue/ItemNames.h"
#include "commands/Digest.h"
#include "commands/FileCopy.h"
#include "platform/core/Waiter.h"
#include "platform/DevicePaths.h"
#include "platform/logger/LogFields.h"
#include "platform/logger/VYXLogger.h"
#include "staging/DatabaseDump.h"
#include "staging/RememberedDigests.h"
#include "staging/StagingError.h"

#include <QFile>

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
    const LogFields fields(module, database);
    Found &now = found[database] = look(database);
    const ChecksumLine line = ChecksumLine::database(itemOf(database).key(), now.digest);
    if (!now.digest.isEmpty() && !artefacts.isMade(module, line)) {
        return;
    }
    now.digest.clear();
    if (!artefacts.areMade() && !now.state.text.isEmpty()) {
        return;
    }
    now.copied = true;
    logDebug("Copying database '%2' of module '%1' into temp dir", module, database);
    const QString target = copyPath(database);
    if (!copyWithSideFiles(fileNameOf(database), target)) {
        QFile::remove(target);
        removeSideFiles(target);
    }
}

DatabaseStaging::Found DatabaseStaging::look(const QString &database)
{
    const QString file = fileNameOf(database);
    const Beneath::Opened opened = data.openRegular(file);
    if (!opened.descriptor.isOpen() || !isAlone(file)) {
        return {};
    }
    const ContentState state = contentState(opened.descriptor.status());
    return {.state = state, .digest = remembered.find(module + "/" + file, state)};
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

void DatabaseStaging::stageCopies(const RestorableObject &object)
{
    for (const RestorableDatabase &database : object.getDatabases()) {
        stagedLines << stageCopy(database);
    }
    for (const QString &database : object.getMissingDatabases()) {
        reportStagingError(QString("the copy of '%1'").arg(data.pathOf(fileNameOf(database))));
        stagedLines << ChecksumLine::database(itemOf(database).key(), {});
    }
}

ChecksumLine DatabaseStaging::stageCopy(const RestorableDatabase &database)
{
    const QString name = database.getName();
    const LogFields fields(module, name);
    const QString copy = copyPath(name);
    ChecksumLine line = ChecksumLine::database(itemOf(name).key(), digestOf(name, found.value(name)));
    if (line.digest().isEmpty()) {
        reportStagingError(QString("the copy of '%1'").arg(data.pathOf(fileNameOf(name))));
    } else if (artefacts.isMade(module, line) && !dump(database, copy, line.digest())) {
        QFile::remove(itemOf(name).stagedPath());
        line.setDigest({});
    }
    QFile::remove(copy);
    removeSideFiles(copy);
    return line;
}

QString DatabaseStaging::digestOf(const QString &database, const Found &then)
{
    if (!then.digest.isEmpty()) {
        return then.digest;
    }
    const QString file = fileNameOf(database);
    const Descriptor live = data.openRegular(file).descriptor;
    const QString digest = then.copied ? digestOfCopy(copyPath(database)) : fileDigest(waiter, live);
    return remembered.enter(module + "/" + file, then.state, digest,
                            [&] { return contentState(live.status()); });
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
QString DatabaseStaging::digestOfCopy(const QString &copy) const
{
    const bool alone = std::ranges::none_of(sideFileSuffixes,
                                            [&](const char *suffix) { return QFile::exists(copy + suffix); });
    const bool whole = QFile::exists(copy) && (alone || DatabaseDump::fold(waiter, copy));
    removeSideFiles(copy);
    return whole ? fileDigest(waiter, openedRegular(copy)) : QString();
}

bool DatabaseStaging::dump(const RestorableDatabase &database, const QString &copy,
                           const QString &digest) const
{
    const QString name = database.getName();
    logDebug("Dump database '%1' of module '%2'", name, module);
    const QString target = itemOf(name).stagedPath();
    const DatabaseDump::Outcome outcome = database.getSqlCommands().isEmpty()
                                              ? DatabaseDump::dumpWhole(waiter, copy, target, digest)
                                              : dumpSelections(database, copy, target, digest);
    if (outcome == DatabaseDump::Outcome::Unsound) {
        logError("Database '%1' of module '%2' is not sound: its last saved copy stays", name, module);
    } else if (outcome == DatabaseDump::Outcome::Failed) {
        logError("Database '%1' of module '%2' could not be dumped: its last saved copy stays", name, module);
    }
    return outcome == DatabaseDump::Outcome::Whole;
}

DatabaseDump::Outcome DatabaseStaging::dumpSelections(const RestorableDatabase &database, const QString &copy,
                                                      const QString &dumpPath, const QString &digest) const
{
    if (!DatabaseDump::isSound(waiter, copy)) {
        return DatabaseDump::Outcome::Unsound;
    }
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
            return DatabaseDump::Outcome::Failed;
        }
    }
    return DatabaseDump::dumpRows(waiter, made, copy, dumpPath, digest);
}
