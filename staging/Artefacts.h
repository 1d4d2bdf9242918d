#pragma once

#include "catalogue/SavedEntries.h"

/// Which archives and dumps a staging is to make, by what is saved already.
class Artefacts
{
public:
    /// None: digests are all that is asked for.
    Artefacts() = default;
    /// Those whose digests differ from the saved ones.
    explicit Artefacts(const LinesByModule &saved);

    /// False when digests are all that is asked for.
    bool areMade() const { return any; }
    /// True when there is to be one whatever its digest turns out to be.
    bool isMadeAnyway(const QString &module, const QString &identity) const;
    /// Of an item whose digest is known.
    bool isMade(const QString &module, const ChecksumLine &line) const;

private:
    bool any = false;
    QHash<QString, QHash<QString, QString>> digests; ///< by module and identity
};
