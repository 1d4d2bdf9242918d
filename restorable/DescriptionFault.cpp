#include "restorable/DescriptionFault.h"

#include "platform/logger/VYXLogger.h"

#include <array>

namespace {

struct Explanation
{
    const char *name;
    const char *meaning;
};

/// In the order of the kinds.
constexpr std::array explanations = {
    Explanation{"unreadable",
                "The module has no items: nothing of it is saved, and what was saved of it stays."},
    Explanation{"too-large", "The file is not looked at: nothing of the module is saved."},
    Explanation{"not-well-formed",
                "It is no XML from here on, so none of it counts: nothing of the module is saved."},
    Explanation{"database-name",
                "The database is left out. A name is that of a file in the module's data directory, "
                "without '.data' and without any directory."},
    Explanation{"database-missing",
                "Nothing of it is saved now. What was saved stays, and a restore brings it back."},
    Explanation{"database-twice", "This one is left out, with its commands and dependencies."},
    Explanation{"dependency-name", "The dependency is left out: nobody is paused for it."},
    Explanation{"path-outside",
                "It is left out. A path is relative to the module's data directory, without '..', TAB "
                "or line break, and no part of it begins with '.saverestore-'."},
    Explanation{"path-too-long", "It is left out."},
    Explanation{"path-twice", "This one is left out, with its priority."},
    Explanation{"path-missing",
                "Nothing of it is saved now. What was saved stays, and a restore brings it back."},
    Explanation{"unknown-element", "It is passed over, with all that is in it."},
    Explanation{"unknown-attribute", "It is passed over."},
    Explanation{"stray-text", "It is passed over."},
    Explanation{"unknown-priority", "It counts as 'high'. Others are 'normal' and 'low'."},
    Explanation{"database-priority",
                "It makes no difference: databases are saved and restored with the high priority."},
    Explanation{"unknown-zip", "Only 'true' asks for an archive: a directory is saved file by file."},
    Explanation{"zip-without-use", "Only directories are archived: it is saved as a file."},
    Explanation{"outer-space", "It is taken as it stands, with the space."},
    Explanation{"dependency-on-itself", "It makes no difference: a module is paused for its own databases."},
    Explanation{"dependency-twice", "It makes no difference."},
    Explanation{"unknown-module",
                "If there is no such module nobody is paused for it, and every save logs an error."},
    Explanation{"sql-without-table", "The rows cannot be put back: there is no table to put them into."},
    Explanation{"sql-no-select", "It is run as a query for rows: the database cannot be saved."},
    Explanation{"sql-empty",
                "There is nothing to run. A database of which only such rows are to be saved is not saved."},
    Explanation{"reset-database", "The command is not run: a reset never makes a database."},
    Explanation{"saved-twice", "The same data are saved and restored twice, or one of both does not count."},
    Explanation{"nothing-described", "Nothing of the module is saved or reset."},
};
static_assert(explanations.size() == size_t(DescriptionFault::Kind::NothingDescribed) + 1);

} // namespace

QString DescriptionFault::name() const
{
    return explanations.at(size_t(kind)).name;
}

QString DescriptionFault::meaning() const
{
    return explanations.at(size_t(kind)).meaning;
}

bool DescriptionFault::isOfDevice() const
{
    return isMissingData() || kind == Kind::ZipWithoutUse || kind == Kind::ResetDatabase ||
           kind == Kind::UnknownModule;
}

void logFaults(const DescriptionFaults &faults, MissingData missing)
{
    for (const DescriptionFault &fault : faults) {
        if (fault.weight == DescriptionFault::Weight::Tolerated) {
            continue;
        }
        if (fault.isMissingData() && missing == MissingData::Expected) {
            logDebug("%1", fault.text);
        } else if (fault.weight == DescriptionFault::Weight::Error) {
            logError("%1", fault.text);
        } else {
            logWarning("%1", fault.text);
        }
    }
}
