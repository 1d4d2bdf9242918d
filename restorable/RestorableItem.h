#pragma once

#include "catalogue/Priorities.h"
#include "catalogue/SavedItem.h"

#include <QList>
#include <QPair>
#include <QString>

#include <utility>

/// (table or database name, SQL text), in document order.
using SqlCommands = QList<QPair<QString, QString>>;

/// One thing that a module has saved.
class RestorableItem
{
public:
    using RestorablePriority = RestorableOrder::RestorablePriority;

    RestorableItemKind getKind() const { return kind; }
    RestorablePriority getPriority() const { return priority; }
    void setPriority(RestorablePriority newPriority) { priority = newPriority; }
    /// The line of the description in which it begins.
    int getLine() const { return line; }
    void setLine(int newLine) { line = newLine; }

protected:
    RestorableItem(RestorableItemKind kind, RestorablePriority priority) : kind(kind), priority(priority) {}

private:
    RestorableItemKind kind;
    RestorablePriority priority;
    int line = 0;
};

/// A file or directory of a module.
class RestorableFile : public RestorableItem
{
public:
    /// `path` is relative to the module's data directory; `zip` asks for an archive of a directory.
    RestorableFile(QString path, RestorableItemKind kind, bool zip, RestorablePriority priority)
        : RestorableItem(kind, priority), path(std::move(path)), zip(zip)
    {
    }

    QString getPath() const { return path; }
    bool isZipped() const { return zip; }

private:
    QString path;
    bool zip;
};

/// A SQLite database of a module: the file `<name>.data` in its data directory. Without SQL commands the
/// whole database is saved, else the rows that each command selects, for the table it names.
class RestorableDatabase : public RestorableItem
{
public:
    explicit RestorableDatabase(QString name)
        : RestorableItem(DatabaseItem, RestorablePriority::high), name(std::move(name))
    {
    }

    QString getName() const { return name; }
    SqlCommands getSqlCommands() const { return sqlCommands; }
    void addSqlCommand(const QString &table, const QString &sql) { sqlCommands.append({table, sql}); }

private:
    QString name;
    SqlCommands sqlCommands;
};
