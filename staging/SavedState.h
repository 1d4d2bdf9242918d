#pragma once

#include "catalogue/FileAttributes.h"
#include "catalogue/SavedEntries.h"
#include "repository/ControlFiles.h"

#include <QList>
#include <QMap>
#include <QSet>
#include <QString>
#include <QStringList>

class KnownModules;
class RepositorySession;

/// Something that could not be done.
struct EntryFailure
{
    QString what; ///< the item or entry, as a person is told of it
    QString text; ///< why
    RequestOutcome::Cause cause = RequestOutcome::Other;
    QString module = {}; ///< empty for a file in which the repository says what it holds
    QString item = {};   ///< path of the item, or name of the entry
};

/// What the repository holds, as it says itself.
struct SavedState
{
    bool isUsable = false; ///< false when format or modules list are not known: nothing may be stored then
    bool isNewer = false;  ///< it is of a format that this service does not know; then nothing else is known
    bool isFirst = false;  ///< there is no modules list yet
    QStringList listed;    ///< modules on the repository's list that the device still has
    QStringList gone;      ///< modules on that list that the device has no more
    QSet<QString> unknown; ///< modules whose saved lines or attributes are not known
    QSet<QString> without; ///< modules without a checksum file: they have no lines
    LinesByModule lines;   ///< of all others that are listed, gone or have items
    QMap<QString, AttributesByKey> attributes;
    QMap<QString, RequestOutcome> versions; ///< of the modules' version files, which are fetched
    QList<EntryFailure> failures;

    /// Fetch it, with events served. Of modules that are `renewed` a checksum or attributes file that cannot
    /// be used counts as none.
    static SavedState fetch(RepositorySession &session, const KnownModules &modules,
                            const QSet<QString> &renewed = {});

private:
    bool takeFormat(const ControlFiles &files);
    bool takeList(const RequestOutcome &outcome, const KnownModules &modules);
    void takeLines(const ControlFiles &files, const QString &module, ChecksumSize &size, bool isRenewed);
    bool takeAttributes(const RequestOutcome &outcome, const QString &module, const ChecksumLines &ofModule,
                        bool isRenewed);
    void fail(const QString &entry, const QString &text, const RequestOutcome &outcome);
};
