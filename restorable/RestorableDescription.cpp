#include "restorable/RestorableDescription.h"

#include "catalogue/ItemNames.h"
#include "platform/DevicePaths.h"
#include "platform/logger/VYXLogger.h"

#include <QDomDocument>
#include <QFile>
#include <QFileInfo>
#include <QXmlStreamReader>

#include <algorithm>

namespace {

constexpr qint64 largestDescription = qint64{1024} * 1024;
constexpr int mostElements = 5000;
constexpr int deepestElement = 20;
/// A key of a checksum file holds it with the module's name and an ending.
constexpr qsizetype longestPath = 3800;

RestorableObject::RestorablePriority priorityOf(const QDomElement &element)
{
    const QString text = element.attribute("priority");
    if (text == "normal") {
        return RestorableObject::normal;
    }
    return text == "low" ? RestorableObject::low : RestorableObject::high;
}

template <typename Handler>
void forEachChild(const QDomElement &parent, const QString &name, const Handler &handle)
{
    for (QDomElement child = parent.firstChildElement(name); !child.isNull();
         child = child.nextSiblingElement(name)) {
        handle(child);
    }
}

void readResetCommands(const QDomElement &section, SqlCommands &commands)
{
    forEachChild(section, "sql-command", [&](const QDomElement &command) {
        commands.append({command.attribute("db-name"), command.text()});
    });
}

/// The bound that a description goes beyond; empty when there is none. Looked at before a tree is made of it.
QString boundBroken(const QByteArray &text)
{
    if (text.size() > largestDescription) {
        return QString("%1 bytes").arg(largestDescription);
    }
    int elements = 0;
    int depth = 0;
    for (QXmlStreamReader xml(text); !xml.atEnd(); xml.readNext()) {
        elements += xml.isStartElement() ? 1 : 0;
        depth += xml.isStartElement() ? 1 : (xml.isEndElement() ? -1 : 0);
        if (elements > mostElements) {
            return QString("%1 elements").arg(mostElements);
        }
        if (depth > deepestElement) {
            return QString("%1 levels").arg(deepestElement);
        }
    }
    return {};
}

} // namespace

void RestorableDescription::read(const QString &path)
{
    QFile file(path);
    QDomDocument document;
    if (!file.open(QIODevice::ReadOnly)) {
        logError("The description '%1' cannot be read: %2", path, file.errorString());
        return;
    }
    const QByteArray text = file.read(largestDescription + 1);
    if (const QString fault = boundBroken(text); !fault.isEmpty()) {
        logError("The description '%1' is refused: it has more than %2", path, fault);
        return;
    }
    QString error;
    int line = 0;
    if (!document.setContent(text, &error, &line)) {
        logError("The description '%1' is broken in line %2: %3", path, line, error);
        return;
    }
    const QDomElement root = document.documentElement();
    for (QDomElement section = root.firstChildElement(); !section.isNull();
         section = section.nextSiblingElement()) {
        const QString name = section.tagName();
        if (name == "databases") {
            forEachChild(section, "database", [this](const QDomElement &element) { readDatabase(element); });
        } else if (name == "files") {
            forEachChild(section, "file", [this](const QDomElement &element) { readFile(element); });
        } else if (name == "reset-to-factory") {
            readResetCommands(section, object.resetToFactoryCommands);
        } else if (name == "reset-to-default") {
            readResetCommands(section, object.resetToDefaultCommands);
        }
    }
}

QString RestorableDescription::dataPath(const QString &item) const
{
    return DevicePaths::moduleData(object.name) + "/" + item;
}

bool RestorableDescription::acceptDatabaseName(const QString &name) const
{
    if (name.isEmpty() || name.contains('/') || ItemNames::normalizedItemPath(name + ".data").isEmpty()) {
        logError("Database name '%1' of module '%2' is refused: it is no plain name", name, object.name);
        return false;
    }
    return true;
}

void RestorableDescription::readDatabase(const QDomElement &element)
{
    const QString name = element.attribute("name");
    if (!acceptDatabaseName(name)) {
        return;
    }
    if (!QFileInfo(dataPath(name + ".data")).isFile()) {
        const char *const text = "Database '%1' of module '%2' does not exist";
        if (missing == MissingData::Expected) {
            logDebug(text, name, object.name);
        } else {
            logError(text, name, object.name);
        }
        object.missingDatabases << name;
        return;
    }
    const bool known =
        std::any_of(object.databases.cbegin(), object.databases.cend(),
                    [&](const RestorableDatabase &database) { return database.getName() == name; });
    if (known) {
        logWarning("Database '%1' of module '%2' is listed twice: only the first counts", name, object.name);
        return;
    }
    RestorableDatabase database(name);
    database.setPriority(priorityOf(element));
    readDatabaseChildren(element, database);
    object.databases << database;
}

void RestorableDescription::readDatabaseChildren(const QDomElement &element, RestorableDatabase &database)
{
    for (QDomElement child = element.firstChildElement(); !child.isNull();
         child = child.nextSiblingElement()) {
        if (child.tagName() == "sql-command") {
            database.addSqlCommand(child.attribute("table-name"), child.text());
        } else if (child.tagName() == "dependency" && ItemNames::isModuleName(child.text())) {
            object.dependencies << child.text();
        } else if (child.tagName() == "dependency") {
            logError("Dependency '%1' of module '%2' is refused: it is no module name", child.text(),
                     object.name);
        }
    }
}

QString RestorableDescription::acceptItemPath(const QString &text) const
{
    QString path = ItemNames::normalizedItemPath(text);
    if (path.isEmpty()) {
        logError("File/directory '%1' of module '%2' is refused: it does not lie below the module's data",
                 text, object.name);
        return {};
    }
    if (path.toUtf8().size() > longestPath) {
        logError("File/directory of module '%1' is refused: its path has more than %2 bytes", object.name,
                 longestPath);
        return {};
    }
    const bool known = std::any_of(object.files.cbegin(), object.files.cend(),
                                   [&](const RestorableFile &file) { return file.getPath() == path; });
    if (known) {
        logWarning("File/directory '%1' of module '%2' is listed twice: only the first counts", path,
                   object.name);
        return {};
    }
    return path;
}

void RestorableDescription::readFile(const QDomElement &element)
{
    const QString path = acceptItemPath(element.text());
    if (path.isEmpty()) {
        return;
    }
    const QFileInfo info(dataPath(path));
    if (!info.exists()) {
        const char *const text = "File/directory '%1' of module '%2' does not exist";
        if (missing == MissingData::Expected) {
            logDebug(text, info.absoluteFilePath(), object.name);
        } else {
            logWarning(text, info.absoluteFilePath(), object.name);
        }
    }
    const bool zip = element.attribute("zip") == "true";
    const RestorableItemKind kind = info.isDir() ? DirectoryItem : FileItem;
    if (kind == DirectoryItem) {
        logDebug("Add dir %1 for module %2", path, object.name);
    } else {
        logDebug("Add file %1 for module %2", path, object.name);
    }
    object.files << RestorableFile(path, kind, zip, priorityOf(element));
}
