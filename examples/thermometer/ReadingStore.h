#pragma once

#include <QList>
#include <QString>

#include <memory>

struct sqlite3;

struct Reading
{
    qint64 taken; ///< seconds since 1970
    double value;
};

/// The readings: first in memory, then, many in one short transaction, in a database.
///
/// After `close` the next transaction opens the database anew, so a file that has taken its place is found.
/// Data of another release (another user_version) are left to the migration program: what is added meanwhile
/// waits in memory, the last 1,000 readings of it.
class ReadingStore
{
public:
    explicit ReadingStore(QString path) : path(std::move(path)) {}

    /// Make the database, or open the one that is there; false when it cannot be written at present.
    bool open();

    void add(const Reading &reading);
    void forgetWaiting() { waiting.clear(); }

    /// Store what waits; false when it cannot be stored at present, and waits on. A lock is waited for as
    /// long as 100 ms.
    bool store();

    /// Give up the database: nothing of it is locked, and no journal is left beside it.
    void close() { database.reset(); }

private:
    struct Closing
    {
        void operator()(sqlite3 *handle) const;
    };

    bool execute(const char *sql) const;
    bool insertWaiting() const;

    QString path;
    std::unique_ptr<sqlite3, Closing> database;
    QList<Reading> waiting;
    bool storing = true; ///< false when the last attempt failed: said once
};
