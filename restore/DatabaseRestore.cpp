#include "restore/DatabaseRestore.h"

#include "commands/Command.h"
#include "commands/ShellText.h"
#include "platform/logger/VYXLogger.h"

namespace DatabaseRestore {

bool isPartial(Waiter &waiter, const QString &dump)
{
    const CommandResult first =
        runShellLine(waiter, QString("zcat %1 | awk 'NR == 1 {print}'").arg(ShellText::quoted(dump)));
    return first.output.trimmed() == "BEGIN TRANSACTION;";
}

bool load(Waiter &waiter, const QString &dump, const QString &database)
{
    const QString unpack = "zcat " + ShellText::quoted(dump);
    // The shell's own commands in a dump must not run: they could do anything on the device.
    const QString fill = "sqlite3 -safe " + ShellText::quoted(database);
    logDebug("%1 | %2", unpack, fill);
    // The status of the line is that of its end; the one of its beginning comes out on standard output.
    const CommandResult result =
        runShellLine(waiter, QString("{ { %1; echo $? >&3; } | %2 >&2; } 3>&1").arg(unpack, fill));
    if (!result.succeeded() || result.output.trimmed() != "0") {
        logError("Dump '%1' could not be loaded: %2", dump, result.errorText);
        return false;
    }
    const CommandResult check = runCommand(waiter, "sqlite3", {database, "PRAGMA quick_check;"});
    if (!check.succeeded() || check.output.trimmed() != "ok") {
        logError("Database '%1' made of dump '%2' is not sound", database, dump);
        return false;
    }
    return true;
}

} // namespace DatabaseRestore
