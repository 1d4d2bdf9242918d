#pragma once

#include "restore/Replacement.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <chrono>

class Waiter;

/// What the loading of one dump may use up.
struct LoadLimits
{
    std::chrono::milliseconds wallClock = std::chrono::minutes(10);
    std::chrono::seconds processorTime = std::chrono::minutes(10);
    /// Address space of each program: enough for rows of 80 MB, which are loaded as text of twice that size.
    qint64 memory = qint64{1024} * 1024 * 1024;
    std::chrono::milliseconds busy =
        std::chrono::seconds(5); ///< how long a lock of the database is waited for
    int shareOfRoom = 1;         ///< of what is free and may be used, one part in so many
};

/// Puts one SQL dump back into its SQLite database. Either all of it gets there, or the database stays as it
/// was, also when the process is killed or the device loses its power.
///
/// A dump of a whole database is loaded into a database beside the live one, whose content then goes into the
/// live one in one transaction: whoever has it open goes on with it. Only a live one that is missing, broken,
/// or held by a user who cannot be waited for is replaced. A dump of selected rows is loaded into a copy of
/// the live one, with its users stopped, and the copy goes the same way.
class DatabaseRestore
{
public:
    DatabaseRestore(QString dump, QString livePath, const LoadLimits &limits = {});

    /// Those of the saved database, which a new file gets; a live one keeps its own.
    void setAttributes(const std::optional<FileAttributes> &saved) { replacement.setAttributes(saved); }

    /// The digest that the saved database had. A dump that is labelled with another one is refused.
    void setPromised(const QString &digest) { promised = digest; }

    /// Look at the dump's label and first line alone. Empty, or what is wrong.
    QString look(const Waiter &waiter);

    /// Check the dump, and load that of a whole database; the live one is not touched, and its users may run.
    /// Empty, or what is wrong.
    QString prepare(Waiter &waiter);

    /// The same for several, as many at a time as there are processors. What is wrong with each.
    static QStringList prepareAll(Waiter &waiter, const QList<DatabaseRestore *> &all);

    /// Put the content in its place after `prepare` has succeeded, with the live one's users stopped. Empty,
    /// or what is wrong; the live database is as it was then.
    QString apply(Waiter &waiter);

    /// True when the dump needs more room than it may take.
    bool lacksRoom() const { return noRoom; }

    /// True after `look` or `prepare` has found that the dump is one of a whole database.
    bool isWhole() const { return !partial; }

private:
    QString begin(const Waiter &waiter);
    QString checkRows(const Waiter &waiter) const;
    QString takePlace();
    QString build(const Waiter &waiter, qsizetype atOnce);
    QString copyLive(const Waiter &waiter) const;
    QString load(const Waiter &waiter, qsizetype atOnce);
    QString faultOfLoaded(const Waiter &waiter) const;
    QString faultOfDump() const;
    QString putInPlace(Waiter &waiter);
    QString faultOfWriting(int result) const;

    QString dump;
    QString livePath;
    QString promised;
    LoadLimits limits;
    Replacement replacement;
    bool partial = false;
    bool noRoom = false;
    bool tooLarge = false; ///< for its share of what is free, when it was loaded beside others
};
