#pragma once

#include "commands/DatabaseConnection.h"

#include <QString>

/// The database of a module that reset commands run on.
class ResetDatabase
{
public:
    /// Open a database of a module in the place of the one that is open. False, with none open, when its name
    /// is no plain name, its file does not exist, cannot be opened or leads out of the module's data
    /// directory; nothing is created.
    bool open(const QString &module, const QString &name);

    /// Run every statement of an SQL text up to the first that fails; SQLite's text when one does, else
    /// nothing. Without an open database nothing happens. A lock is waited for up to 5 s; after 60 s, and
    /// when the process is asked to end, the statement is interrupted and has no effect. No file can be
    /// attached.
    QString execute(const QString &sql);

private:
    DatabaseConnection connection;
};
