#include "restorable/RestorableListing.h"

namespace {

QString heading(const QString &title, bool empty)
{
    return QString("%1: %2\n").arg(title, empty ? QString("none") : QString());
}

QString databaseLines(const RestorableObject &object)
{
    QString text = heading("Databases", object.getDatabases().isEmpty());
    for (const RestorableDatabase &database : object.getDatabases()) {
        QString command;
        for (const auto &[table, sql] : database.getSqlCommands()) {
            command += sql + " ";
        }
        text += QString("\t'%1', save command: '%2', priority: '%3'\n")
                    .arg(database.getName(), command.isEmpty() ? QString("full") : command,
                         priorityName(database.getPriority()));
    }
    return text;
}

QString fileLines(const RestorableObject &object, RestorableItemKind kind, const QString &title)
{
    QString lines;
    for (const RestorableFile &file : object.getFiles()) {
        if (file.getKind() == kind) {
            lines += QString("\t'%1', zipped: '%2', priority: '%3'\n")
                         .arg(file.getPath(), file.isZipped() ? "true" : "false",
                              priorityName(file.getPriority()));
        }
    }
    return heading(title, lines.isEmpty()) + lines;
}

QString resetLines(const SqlCommands &commands, const QString &title)
{
    QString text = heading(title, commands.isEmpty());
    for (const auto &[database, sql] : commands) {
        text += QString("\t'%1', sql command: '%2'\n").arg(database, sql);
    }
    return text;
}

QString moduleText(const RestorableObject &object)
{
    const QStringList dependencies = object.getDependencies();
    return QString("Module: '%1', version: '%2::%3', pid: '%4'\n")
               .arg(object.getName(), object.getRelease(), object.getVersion(), object.getPid()) +
           QString("Dependencies: %1\n").arg(dependencies.isEmpty() ? "none" : dependencies.join(", ")) +
           databaseLines(object) + fileLines(object, FileItem, "Files") +
           fileLines(object, DirectoryItem, "Directories") + "\n" +
           resetLines(object.getResetToFactoryCommands(), "Reset to factory") +
           resetLines(object.getResetToDefaultCommands(), "Reset to default");
}

} // namespace

QString restorableListing(const QList<RestorableObject> &objects)
{
    QString text;
    for (const RestorableObject &object : objects) {
        text += moduleText(object);
    }
    return text;
}
