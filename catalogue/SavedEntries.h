#pragma once

#include "catalogue/ChecksumFile.h"
#include "catalogue/ItemNames.h"

#include <QMap>
#include <QSet>

using LinesByModule = QMap<QString, ChecksumLines>;

/// Under which entry the repository holds each item of a set of checksum files. It depends on nothing but
/// these files, so that a save and a later restore come to the same names.
class SavedEntries
{
public:
    explicit SavedEntries(LinesByModule linesByModule);

    /// The entry of an item; an empty name when its line is of no known form.
    ItemNames::EntryName entry(const QString &module, const ChecksumLine &line) const;

    /// The entry of a plain file, also of one that is in none of the files.
    ItemNames::EntryName plainFile(const QString &module, const QString &key) const
    {
        return plainFiles.entry(module, key);
    }

    /// The full names of all items' entries.
    QSet<QString> names() const;

    const LinesByModule &lines() const { return linesByModule; }

private:
    LinesByModule linesByModule;
    ItemNames::PlainFileEntries plainFiles;
};
