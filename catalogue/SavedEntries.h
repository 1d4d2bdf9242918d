#pragma once

#include "catalogue/ChecksumFile.h"

#include <QHash>
#include <QMap>
#include <QSet>

using LinesByModule = QMap<QString, ChecksumLines>;

/// Under which entry the repository holds each item of a set of checksum files. It depends on nothing but
/// these files, so that a save and a later restore come to the same names.
///
/// An item's names, by rank: of a plain file a/c of module m 0. a++c, 1. m++a++c, 3. the exact one; of an
/// archive or a dump 2. the usual one, 3. the exact one. Each item claims its first name. One that claims a
/// name which another item claims or has claimed with the same or a higher rank, or which is that of a
/// control file, claims its next one. No two exact names are the same.
///
/// With more items no item gets a name of lower rank. Takes time in proportion to the lines.
class SavedEntries
{
public:
    explicit SavedEntries(LinesByModule linesByModule);

    /// The name of an item's entry, also of one that is in none of the files; empty when its line is of no
    /// known form.
    QString entry(const QString &module, const ChecksumLine &line) const;

    /// The names that an item's entry can have, the one without any collision first.
    static QStringList possibleNames(const QString &module, const ChecksumLine &line);

    /// The names of all items' entries.
    QSet<QString> names() const;

    const LinesByModule &lines() const { return linesByModule; }

private:
    LinesByModule linesByModule;
    QHash<QString, int> moved; ///< which of its names an item has that has not the first one
};
