#pragma once

#include <QList>
#include <QString>

/// Whether it is worth a warning that data which a description lists are not there.
enum class MissingData { Reported, Expected };

/// A place of a restorable.xml that is not as it should be, and what the service makes of it. A plain value.
struct DescriptionFault
{
    enum class Kind {
        Unreadable,
        TooLarge,
        NotWellFormed,
        DatabaseName,
        DatabaseMissing,
        DatabaseTwice,
        DependencyName,
        PathOutside,
        PathTooLong,
        PathTwice,
        PathMissing,
        UnknownElement,
        UnknownAttribute,
        StrayText,
        UnknownPriority,
        DatabasePriority,
        UnknownZip,
        ZipWithoutUse,
        OuterSpace,
        DependencyOnItself,
        DependencyTwice,
        UnknownModule,
        SqlWithoutTable,
        SqlNoSelect,
        SqlEmpty,
        ResetDatabase,
        SavedTwice,
        NothingDescribed,
    };
    enum class Weight {
        Error,     ///< logged as an error
        Warning,   ///< logged as a warning
        Tolerated, ///< not logged: it may be meant so
    };

    Kind kind;
    Weight weight;
    /// Where the element begins, from 1; 0 when it is the file as a whole.
    int line;
    /// What there is, as the log has it.
    QString text;

    /// A word for programs, such as "database-missing".
    QString name() const;
    /// What the service does about it, as a sentence.
    QString meaning() const;
    /// True for data that are not there at present.
    bool isMissingData() const { return kind == Kind::DatabaseMissing || kind == Kind::PathMissing; }
    /// True when it depends on the device and not on the file alone.
    bool isOfDevice() const;
};

using DescriptionFaults = QList<DescriptionFault>;

/// Log them in their order; missing data at debug level when they are expected to be.
void logFaults(const DescriptionFaults &faults, MissingData missing);
