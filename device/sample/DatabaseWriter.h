#pragma once

#include <QObject>
#include <QString>
#include <QTimer>

#include <memory>

struct sqlite3;

/// Adds a numbered row to the table "samples" of a database every 100 ms over a connection that stays open,
/// as a module does that measures something. The database is in WAL mode and never checkpointed on purpose,
/// so the last committed rows are in the write-ahead log, not in the database file.
///
/// When the database file was replaced under the connection, the writer goes on with the new one.
class DatabaseWriter : public QObject
{
    Q_OBJECT

public:
    DatabaseWriter(QString path, QObject *parent);

    /// Open the database, create the table if need be and start writing. False when that failed.
    bool start();

private:
    struct Closing
    {
        void operator()(sqlite3 *handle) const;
    };

    bool open();
    bool execute(const QString &sql) const;
    void writeRow();
    quint64 fileNumber() const;

    QString path;
    std::unique_ptr<sqlite3, Closing> database;
    QTimer timer;
    quint64 openedFile = 0;
    bool lastWriteFailed = false;
};
