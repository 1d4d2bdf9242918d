#include "catalogue/SavedVersion.h"

#include <QStringList>

SavedVersion SavedVersion::parse(const QString &line)
{
    const qsizetype separator = line.indexOf("::");
    return {line.left(separator), line.mid(separator + 2)};
}

QString Migration::text() const
{
    return QStringList{module, saved.release, saved.version, release, version}.join(';');
}

std::optional<Migration> neededMigration(const QString &module, const SavedVersion &saved,
                                         const QString &release, const QString &version)
{
    if (saved.release == release && saved.version == version) {
        return std::nullopt;
    }
    return Migration{module, saved, release, version};
}
