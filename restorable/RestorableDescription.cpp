#include "restorable/RestorableDescription.h"

#include "catalogue/ItemNames.h"
#include "platform/DevicePaths.h"

#include <QFileInfo>
#include <QSet>

#include <algorithm>

using Kind = DescriptionFault::Kind;
using Weight = DescriptionFault::Weight;

namespace {

/// A key of a checksum file holds it with the module's name and an ending.
constexpr qsizetype longestPath = 3800;

bool selectsRows(const QString &sql)
{
    const QString start = sql.trimmed();
    const auto begins = [&](const char *word) { return start.startsWith(word, Qt::CaseInsensitive); };
    return begins("SELECT") || begins("WITH") || begins("VALUES") || begins("--") || begins("/*");
}

/// The listed directory with which the path is saved, too; empty when there is none.
QString directoryThatHas(const QHash<QString, const RestorableFile *> &directories, const QString &path)
{
    for (qsizetype end = directories.isEmpty() ? 0 : path.lastIndexOf('/'); end > 0;
         end = path.lastIndexOf('/', end - 1)) {
        const RestorableFile *directory = directories.value(path.left(end));
        const QString rest = path.mid(end + 1);
        if (directory != nullptr &&
            (directory->isZipped() || !(rest.contains('/') || rest.startsWith('.')))) {
            return directory->getPath();
        }
    }
    return {};
}

} // namespace

/// Hands over the children of that name; what else is there is passed over.
template <typename Handler>
void RestorableDescription::forEachChild(const QDomElement &parent, const QString &name,
                                         const Handler &handle)
{
    notes.attributes(parent, {});
    for (QDomNode child = parent.firstChild(); !child.isNull(); child = child.nextSibling()) {
        if (child.toElement().tagName() == name) {
            handle(child.toElement());
        } else {
            notes.stray(child);
        }
    }
}

RestorableObject::RestorablePriority RestorableDescription::priorityOf(const QDomElement &element)
{
    const QString text = element.attribute("priority", "high");
    if (text == "normal") {
        return RestorableObject::normal;
    }
    if (text == "low") {
        return RestorableObject::low;
    }
    if (text != "high") {
        notes.tolerate(Kind::UnknownPriority, element, QString("Priority '%1' is not known").arg(text));
    }
    return RestorableObject::high;
}

DescriptionFaults RestorableDescription::read(const QString &path)
{
    const QDomElement root = notes.open(path);
    for (QDomNode section = root.firstChild(); !section.isNull(); section = section.nextSibling()) {
        if (section.isElement()) {
            readSection(section.toElement());
        } else {
            notes.stray(section);
        }
    }
    lookForOverlaps();
    const bool described = object.hasItems() || !object.resetToFactoryCommands.isEmpty() ||
                           !object.resetToDefaultCommands.isEmpty();
    if (!root.isNull() && !described) {
        notes.tolerate(Kind::NothingDescribed, root, "Nothing is described that counts");
    }
    return notes.list();
}

void RestorableDescription::readSection(const QDomElement &section)
{
    const QString name = section.tagName();
    if (name == "databases") {
        forEachChild(section, "database", [this](const QDomElement &element) { readDatabase(element); });
    } else if (name == "files") {
        forEachChild(section, "file", [this](const QDomElement &element) { readFile(element); });
    } else if (name == "reset-to-factory" || name == "reset-to-default") {
        SqlCommands &commands =
            name == "reset-to-factory" ? object.resetToFactoryCommands : object.resetToDefaultCommands;
        forEachChild(section, "sql-command",
                     [&](const QDomElement &element) { readResetCommand(element, commands); });
    } else {
        notes.stray(section);
    }
}

QString RestorableDescription::dataPath(const QString &item) const
{
    return DevicePaths::moduleData(object.name) + "/" + item;
}

void RestorableDescription::readResetCommand(const QDomElement &element, SqlCommands &commands)
{
    notes.attributes(element, {"db-name"});
    const QString database = element.attribute("db-name");
    const QString sql = element.text();
    notes.children(element);
    if (database.isEmpty() || database.contains('/')) {
        notes.tolerate(Kind::ResetDatabase, element,
                       QString("Database name '%1' is no plain name").arg(database));
    } else if (!object.missingDatabases.contains(database) &&
               !QFileInfo(dataPath(database + ".data")).isFile()) {
        notes.tolerate(Kind::ResetDatabase, element,
                       QString("There is no database '%1' to reset").arg(database));
    }
    if (sql.trimmed().isEmpty()) {
        notes.tolerate(Kind::SqlEmpty, element, "The SQL command is empty");
    }
    commands.append({database, sql});
}

bool RestorableDescription::acceptDatabase(const QDomElement &element, const QString &name)
{
    if (name.isEmpty() || name.contains('/') || ItemNames::normalizedItemPath(name + ".data").isEmpty()) {
        notes.report(Weight::Error, Kind::DatabaseName, element,
                     QString("Database name '%1' of module '%2' is refused: it is no plain name")
                         .arg(name, object.name));
        return false;
    }
    if (!QFileInfo(dataPath(name + ".data")).isFile()) {
        notes.report(Weight::Error, Kind::DatabaseMissing, element,
                     QString("Database '%1' of module '%2' does not exist").arg(name, object.name));
        object.missingDatabases << name;
        return false;
    }
    const bool known =
        std::any_of(object.databases.cbegin(), object.databases.cend(),
                    [&](const RestorableDatabase &database) { return database.getName() == name; });
    if (known) {
        notes.report(Weight::Warning, Kind::DatabaseTwice, element,
                     QString("Database '%1' of module '%2' is listed twice: only the first counts")
                         .arg(name, object.name));
    }
    return !known;
}

/// What is in a database that is left out is looked at, too.
void RestorableDescription::readDatabase(const QDomElement &element)
{
    notes.attributes(element, {"name", "priority"});
    const QString name = element.attribute("name");
    notes.outerSpace(element, name);
    const bool accepted = acceptDatabase(element, name);
    RestorableDatabase database(name);
    database.setLine(notes.lineOf(element));
    database.setPriority(priorityOf(element));
    if (database.getPriority() != RestorableObject::high) {
        notes.tolerate(
            Kind::DatabasePriority, element,
            QString("Database '%1' has the priority '%2'").arg(name, element.attribute("priority")));
    }
    QStringList dependencies;
    readDatabaseChildren(element, database, dependencies);
    if (accepted) {
        object.databases << database;
        object.dependencies << dependencies;
    }
}

void RestorableDescription::readDatabaseChildren(const QDomElement &element, RestorableDatabase &database,
                                                 QStringList &dependencies)
{
    for (QDomNode child = element.firstChild(); !child.isNull(); child = child.nextSibling()) {
        if (child.toElement().tagName() == "sql-command") {
            readSelection(child.toElement(), database);
        } else if (child.toElement().tagName() == "dependency") {
            readDependency(child.toElement(), dependencies);
        } else {
            notes.stray(child);
        }
    }
}

void RestorableDescription::readSelection(const QDomElement &element, RestorableDatabase &database)
{
    notes.attributes(element, {"table-name"});
    notes.children(element);
    const QString table = element.attribute("table-name");
    const QString sql = element.text();
    if (table.isEmpty()) {
        notes.tolerate(Kind::SqlWithoutTable, element, "The SQL command has no 'table-name'");
    }
    if (sql.trimmed().isEmpty()) {
        notes.tolerate(Kind::SqlEmpty, element, "The SQL command is empty");
    } else if (!selectsRows(sql)) {
        notes.tolerate(Kind::SqlNoSelect, element,
                       QString("The SQL command is no SELECT: '%1'").arg(sql.simplified().left(40)));
    }
    database.addSqlCommand(table, sql);
}

void RestorableDescription::readDependency(const QDomElement &element, QStringList &dependencies)
{
    const QString module = element.text();
    notes.attributes(element, {});
    notes.children(element);
    notes.outerSpace(element, module);
    if (!ItemNames::isModuleName(module)) {
        notes.report(Weight::Error, Kind::DependencyName, element,
                     QString("Dependency '%1' of module '%2' is refused: it is no module name")
                         .arg(module, object.name));
        return;
    }
    if (module == object.name) {
        notes.tolerate(Kind::DependencyOnItself, element,
                       QString("Module '%1' depends on itself").arg(module));
    } else if (dependencies.contains(module)) {
        notes.tolerate(Kind::DependencyTwice, element,
                       QString("Dependency '%1' is listed twice").arg(module));
    } else if (!QFileInfo::exists(DevicePaths::moduleData(module)) &&
               !QFileInfo::exists(DevicePaths::restorableDescription(module))) {
        notes.tolerate(Kind::UnknownModule, element,
                       QString("Dependency '%1' has neither data nor a description").arg(module));
    }
    dependencies << module;
}

QString RestorableDescription::acceptItemPath(const QDomElement &element)
{
    QString path = ItemNames::normalizedItemPath(element.text());
    if (path.isEmpty()) {
        notes.report(
            Weight::Error, Kind::PathOutside, element,
            QString("File/directory '%1' of module '%2' is refused: it does not lie below the module's data")
                .arg(element.text(), object.name));
        return {};
    }
    if (path.toUtf8().size() > longestPath) {
        notes.report(Weight::Error, Kind::PathTooLong, element,
                     QString("File/directory of module '%1' is refused: its path has more than %2 bytes")
                         .arg(object.name, QString::number(longestPath)));
        return {};
    }
    const bool known = std::any_of(object.files.cbegin(), object.files.cend(),
                                   [&](const RestorableFile &file) { return file.getPath() == path; });
    if (known) {
        notes.report(Weight::Warning, Kind::PathTwice, element,
                     QString("File/directory '%1' of module '%2' is listed twice: only the first counts")
                         .arg(path, object.name));
        return {};
    }
    return path;
}

void RestorableDescription::readFile(const QDomElement &element)
{
    notes.attributes(element, {"priority", "zip"});
    const auto priority = priorityOf(element);
    const QString zipText = element.attribute("zip", "false");
    const bool zip = zipText == "true";
    if (!zip && zipText != "false") {
        notes.tolerate(Kind::UnknownZip, element,
                       QString("'zip' is neither true nor false: '%1'").arg(zipText));
    }
    const QString path = acceptItemPath(element);
    notes.children(element);
    if (path.isEmpty()) {
        return;
    }
    notes.outerSpace(element, element.text());
    const QFileInfo info(dataPath(path));
    if (!info.exists()) {
        notes.report(Weight::Warning, Kind::PathMissing, element,
                     QString("File/directory '%1' of module '%2' does not exist")
                         .arg(info.absoluteFilePath(), object.name));
    } else if (zip && !info.isDir()) {
        notes.tolerate(Kind::ZipWithoutUse, element, QString("'%1' is no directory").arg(path));
    }
    RestorableFile file(path, info.isDir() ? DirectoryItem : FileItem, zip, priority);
    file.setLine(notes.lineOf(element));
    object.files << file;
}

void RestorableDescription::lookForOverlaps()
{
    QHash<QString, const RestorableFile *> directories;
    for (const RestorableFile &file : std::as_const(object.files)) {
        if (file.getKind() == DirectoryItem) {
            directories.insert(file.getPath(), &file);
        }
    }
    QSet<QString> databases;
    for (const RestorableDatabase &database : std::as_const(object.databases)) {
        databases.insert(database.getName() + ".data");
    }
    for (const RestorableFile &file : std::as_const(object.files)) {
        const QString other = databases.contains(file.getPath())
                                  ? "the databases"
                                  : directoryThatHas(directories, file.getPath());
        if (!other.isEmpty()) {
            notes.tolerate(Kind::SavedTwice, file.getLine(),
                           QString("'%1' is also saved with '%2'").arg(file.getPath(), other));
        }
    }
}
